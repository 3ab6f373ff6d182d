#include <stdio.h>
#include <torvane.h>

int main(void) {
    DriveList list = {0, NULL};
    /* The serial numbers are read because the options ask for identity.
       */
    if (get_drive_by_serial(&list,
                            DRIVE_OPTION_SYSTEM | DRIVE_OPTION_IDENTITY,
                            "S4EV") != 0)
        return 1;
    if (list.count > 1)
        puts("more than one: give more of the serial number");
    if (list.count == 1) puts(list.drives[0]->name);
    release_drives(&list);
    return 0;
}
