#include <stdio.h>
#include <torvane.h>

int main(void) {
    MediaList list = empty_media_list;
    if (get_usb_mass_storage_devices(&list) != 0) {
        fprintf(stderr, "%s\n", get_error_str(TORVANE_ERROR_DEVICE));
        return 1;
    }
    for (uint32_t i = 0; i < list.count; ++i)
        printf("%s %s\n", list.media[i].serial, list.media[i].model);
    release_media_list(&list);
    return 0;
}
