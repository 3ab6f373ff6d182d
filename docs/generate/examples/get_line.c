#include <stdio.h>
#include <stdlib.h>
#include <torvane.h>

int main(void) {
    FILE *stream = fopen("/proc/partitions", "r");
    if (stream == NULL) return 1;
    int length = 0;
    do {
        char *line = NULL;
        length = get_line(&line, stream);
        if (length > 0) fputs(line, stdout);
        free(line); /* also at the end of the file */
    } while (length > 0);
    fclose(stream);
    return length == 0 ? 0 : 1;
}
