#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <torvane.h>
#include <unistd.h>

int main(void) {
    const char *path = "/dev/sda";
    const int fd = open(
        path,
        O_RDONLY | O_NONBLOCK); /* this function opens nothing itself */
    char *serial = NULL;
    const int result =
        fd >= 0 ? get_drive_serial(fd, path, NULL, &serial) : -1;
    puts(result == 0 ? serial : "no serial number");
    free(serial);
    if (fd >= 0) close(fd);
    return result == 0 ? 0 : 1;
}
