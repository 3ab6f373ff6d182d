#include <stdio.h>
#include <torvane.h>

int main(void) {
    RaidController *list = NULL;
    uint32_t count = 0;
    if (get_raids(&list, &count) != 0) {
        fprintf(stderr, "%s\n", get_error_str(TORVANE_ERROR_RAID));
        return 1;
    }
    for (uint32_t i = 0; i < count; ++i)
        for (uint32_t j = 0; j < list[i].group_count; ++j)
            printf("%s: %u drives\n", list[i].groups[j].device,
                   list[i].groups[j].drive_count);
    destroy_raids(list, (int)count);
    return 0;
}
