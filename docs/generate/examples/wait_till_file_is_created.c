#include <stdio.h>
#include <torvane.h>

int main(void) {
    /* At most one second; a file that is there already ends the wait at
       once. */
    if (wait_till_file_is_created("/dev", "null", 1) != 0) return 1;
    puts("/dev/null is there");
    return 0;
}
