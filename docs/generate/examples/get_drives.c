#include <stdio.h>
#include <torvane.h>

int main(void) {
    DriveList list = {0, NULL};
    if (get_drives(&list, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_IDENTITY,
                   NULL, 0) != 0) {
        fprintf(stderr, "%s\n", get_error_str(TORVANE_ERROR_DRIVE_LIST));
        return 1;
    }
    for (uint32_t i = 0; i < list.count; ++i) {
        const char *serial = list.drives[i]->serial;
        printf("%s %s\n", list.drives[i]->name,
               serial != NULL ? serial : "-");
    }
    release_drives(&list);
    return 0;
}
