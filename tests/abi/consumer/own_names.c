/* A program with functions of its own under the names of the library's helpers: it compiles, and the library
 * does not call them. */
#define TORVANE_NO_HELPERS
#include <stdlib.h>
#include <torvane.h>

#if TORVANE_VERSION != 20000 || TORVANE_VERSION < TORVANE_VERSION_MAJOR * 10000
#error "TORVANE_VERSION is not the version as one number"
#endif

typedef const char *StringList;
int trim(StringList text);
void execute(void);
double get_line(void);
char *duplicate_str(int number);
int file_exists(const char *a, const char *b);

int trim(StringList text) { return text[0]; }
void execute(void) { abort(); }
double get_line(void) { return 0; }
char *duplicate_str(int number) { return abort(), number == 0 ? NULL : ""; }
int file_exists(const char *a, const char *b) { return abort(), a == b; }

int main(void) {
    char *name = get_device_name_from_partition_new("no such disk"); /* by file_exists() and duplicate_str() */
    DriveRecord *drive = init_drive("/dev/no such disk");
    const int result = drive == NULL ? 0 : get_drive_geometry(drive->name, drive);
    puts(name);
    free(name);
    release_drive(drive);
    return result == TORVANE_NOT_OPENED && has_error(-5, TORVANE_GEOMETRY_START) == 1 ? trim("") : 1;
}
