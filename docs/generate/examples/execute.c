#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <torvane.h>

int main(void) {
    FILE *output = NULL;
    const pid_t child =
        execute("echo one; echo two", NULL, &output, NULL);
    if (child < 0 || output == NULL) return 1;
    for (;;) {
        char *line = NULL;
        const int length = get_line(&line, output);
        if (length > 0) fputs(line, stdout);
        free(line);
        if (length < 1) break;
    }
    fclose(output);
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status)
               ? WEXITSTATUS(status)
               : 1;
}
