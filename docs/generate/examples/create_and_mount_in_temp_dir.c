#include <stdio.h>
#include <stdlib.h>
#include <torvane.h>

int main(void) {
    char *directory = NULL;
    if (create_and_mount_in_temp_dir("STICK0001", &directory) != 0) {
        fprintf(stderr, "%s\n", get_error_str(TORVANE_ERROR_MOUNT));
        return 1;
    }
    printf("its files are below %s\n", directory);
    const int result = remove_and_umount_in_temp_dir(directory);
    free(directory);
    return result == 0 ? 0 : 1;
}
