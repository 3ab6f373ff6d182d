#include <stdio.h>
#include <stdlib.h>
#include <torvane.h>

int main(void) {
    char *path = NULL;
    /* The size is exact, the terminator included: a text of any other
       length is a failure. */
    if (dupnprintf(&path, sizeof "/dev/sda", "/dev/%s", "sda") != 0)
        return 1;
    puts(path);
    free(path);
    return 0;
}
