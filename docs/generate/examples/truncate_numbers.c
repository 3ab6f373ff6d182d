#include <stdio.h>
#include <string.h>
#include <torvane.h>

int main(void) {
    const char *partition = "sda12";
    char disk[8] = {
        0}; /* zeroed, and two bytes longer than the text that is kept */
    if (truncate_numbers(partition, disk) != 0) return 1;
    puts(disk);
    return strcmp(disk, "sda") == 0 ? 0 : 1;
}
