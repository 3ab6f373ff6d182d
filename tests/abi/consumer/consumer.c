/* A program as a user of the library writes it. */
#include <torvane.h>

int main(void) {
    DriveList list = {0, NULL};
    if (get_drives(&list, DRIVE_OPTION_GEOMETRY, NULL, 0) == 0) return 1;
    puts(get_error_str(TORVANE_ERROR_DRIVE_LIST));
    return get_bytes_from_str("2 KB") == 2048 ? 0 : 1;
}
