/* torvane: the storage devices of a Linux machine, and what they are.
 *
 * One contract for the whole interface; each function below says only what is its own.
 *
 * Results.  0 is success and -1 failure, a null pointer is a failed allocation or look-up. Composite
 * readers add up one negative power of two for each piece that failed, so a sum names the pieces
 * (TORVANE_GEOMETRY_* and its kin, with has_error()); a device path that cannot be opened gives
 * TORVANE_NOT_OPENED, +1, there. The appenders that return 1 say so.
 *
 * Errors.  A failure leaves its words in one text buffer per category (TORVANE_ERROR_*), read with
 * get_error_str(). The last failure of a category wins; nothing ever clears a buffer.
 *
 * Ownership.  Records, lists and strings that a function hands out are on the heap (malloc) and the
 * caller's; strings go back with free(), records and lists with the release function named beside them.
 * Release functions accept null. Text that is only read is `const char *`.
 *
 * Null arguments.  A null pointer where one is needed gives the function's failure result, never a crash.
 * An output place stays untouched on failure unless its function says otherwise.
 *
 * Descriptors.  Functions that take a descriptor and a path use the descriptor when it is greater than 0
 * and otherwise open the path read-only for the length of the call. get_drive_serial_number(),
 * get_drive_serial(), get_drive_model() and get_device_stat() open nothing: they say what they do with each.
 *
 * Concurrency.  No threads, no locks: the error buffers and the SCSI command counter are shared by the
 * whole process, so call the library from one thread at a time.
 *
 * Commands.  Hardware RAID and mounting run other programs through /bin/sh: arcconf, megacli, timeout,
 * lspci, which, mount, umount. The library itself reads nothing from the environment, but the shell does:
 * PATH decides which program of that name runs, with the caller's privileges, so a caller that is root sets
 * PATH to folders that only root can write. SIGCHLD must not be ignored, nor reaped by a handler that waits
 * for any child: how a command ended is then not known, and counts as failure.
 *
 * Privileges.  Opening block devices, SG_IO, mknod and writes to /sys need root (CAP_SYS_RAWIO,
 * CAP_SYS_ADMIN, CAP_MKNOD); without them the readers concerned fail and say why.
 *
 * Names.  The sections "Strings" and "Files and commands" declare names that a program may well have of its
 * own, such as trim(), execute() and get_line(). Define TORVANE_NO_HELPERS before the first inclusion to
 * leave both sections out. The library never calls a program's functions of these names.
 */
#ifndef TORVANE_H
#define TORVANE_H

#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>

#define TORVANE_VERSION_MAJOR 2
#define TORVANE_VERSION_MINOR 0
#define TORVANE_VERSION_PATCH 0
/* The version as one number that grows with each release: 2.0.0 is 20000. */
#define TORVANE_VERSION (TORVANE_VERSION_MAJOR * 10000 + TORVANE_VERSION_MINOR * 100 + TORVANE_VERSION_PATCH)

#if defined(__GNUC__) || defined(__clang__)
#define TORVANE_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define TORVANE_PRINTF(text, first)
#endif

#ifdef __cplusplus
#define TORVANE_NOEXCEPT noexcept
extern "C" {
#else
#define TORVANE_NOEXCEPT
#endif

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default)
#endif

/* ---- Enumerated values --------------------------------------------------------------------------- */

/* Error categories, the first argument of set_error_str() and get_error_str(). */
enum {
    TORVANE_ERROR_GEOMETRY = 1,
    TORVANE_ERROR_IDENTITY = 2,
    TORVANE_ERROR_DEFECTS = 3,
    TORVANE_ERROR_SYSFS = 4,
    TORVANE_ERROR_STATE = 5,
    TORVANE_ERROR_RAID = 6,
    TORVANE_ERROR_DRIVE_LIST = 7,
    TORVANE_ERROR_DEVICE = 8,
    TORVANE_ERROR_MOUNT = 9
};

/* DeviceKind: what a device's major number says it is (Linux devices.txt). */
typedef int32_t DeviceKind;
enum { DEVICE_KIND_OTHER = 1, DEVICE_KIND_IDE = 2, DEVICE_KIND_SCSI = 3, DEVICE_KIND_SCSI_GENERIC = 4 };

/* DriveType: the `drive_type` of a DriveRecord. */
typedef uint32_t DriveType;
enum {
    DRIVE_TYPE_DISK = 0,
    DRIVE_TYPE_ISCSI = 1,
    DRIVE_TYPE_SOFTWARE_RAID = 2,
    DRIVE_TYPE_RAID_MEMBER = 3,
    DRIVE_TYPE_REMOVABLE = 4,
    DRIVE_TYPE_OPTICAL = 5,
    DRIVE_TYPE_ADAPTER = 6
};

/* DriveOptions: bits of the options argument of get_drives() and its kin. */
typedef int DriveOptions;
enum {
    DRIVE_OPTION_SYSTEM = 1,   /* every whole disk of /proc/partitions */
    DRIVE_OPTION_GEOMETRY = 2, /* sizes, start, rotation, partitions */
    DRIVE_OPTION_IDENTITY = 4, /* device numbers, generic name, model, serial */
    DRIVE_OPTION_DEFECTS = 8,  /* primary and grown defect lists */
    DRIVE_OPTION_STATE = 16,   /* vendor permission level */
    DRIVE_OPTION_RAID = 64,    /* hardware RAID members, software RAID and iSCSI marks */
    DRIVE_OPTION_USB = 128,    /* USB mass storage */
    DRIVE_OPTION_OPTICAL = 256 /* optical drives of /proc/sys/dev/cdrom/info */
};

/* RaidType: a controller family, and the SCSI channel on which its driver shows logical drives. */
enum { RAID_TYPE_ADAPTEC = 0, RAID_TYPE_LSI = 2 };

/* BindState: whether a SCSI device is bound to its driver and has a node in /dev. */
enum { STATE_UNBOUND = 0, STATE_BOUND = 1, STATE_NODE = 2 };

/* ScsiType: peripheral device types that the library drives (SPC-4, standard INQUIRY data). */
enum { SCSI_TYPE_DISK = 0, SCSI_TYPE_TAPE = 1, SCSI_TYPE_OPTICAL = 5, SCSI_TYPE_ENCLOSURE = 13 };

/* UsbStatus: a plain storage device, or something to be treated as an adapter (card reader). */
enum { USB_STATUS_DEVICE = 0, USB_STATUS_ADAPTER = 2 };

/* ---- Result bits --------------------------------------------------------------------------------- */

/* What a composite reader's negative sum is made of: has_error(result, TORVANE_GEOMETRY_START) is 1 when
 * the start could not be read. Look for TORVANE_NOT_OPENED first: it is no sum. The result fields of a
 * DriveRecord hold the same values, unsigned: convert them to int32_t. */

/* Instead of a sum: the device path could not be opened. */
enum { TORVANE_NOT_OPENED = 1 };

/* get_drive_geometry(), get_device_geometry() and their parts. */
enum {
    TORVANE_GEOMETRY_BLOCK_SIZE = 1,
    TORVANE_GEOMETRY_BLOCK_COUNT = 2,
    TORVANE_GEOMETRY_START = 4,
    TORVANE_GEOMETRY_ROTATION = 8, /* set for solid state, too */
    TORVANE_GEOMETRY_PARTITIONS = 16,
    TORVANE_GEOMETRY_BLOCK_SIZE_RETRY = 32, /* get_device_geometry() only, in place of the block size's */
    TORVANE_GEOMETRY_DEVICE_NAME = 64       /* get_device_geometry() only, and nothing else was read */
};

/* get_device_specification() and its parts. */
enum {
    TORVANE_DEVICE_GENERIC_NAME = 1,
    TORVANE_DEVICE_SERIAL = 2,
    TORVANE_DEVICE_MODEL = 4,
    TORVANE_DEVICE_NUMBERS = 16 /* and nothing else was read */
};

/* get_drive_specification(): 1 for one of serial number and generic name, 2 for both. */
enum {
    TORVANE_DRIVE_SERIAL_OR_GENERIC_NAME = 1,
    TORVANE_DRIVE_SERIAL_AND_GENERIC_NAME = 2,
    TORVANE_DRIVE_MODEL = 4,
    TORVANE_DRIVE_NUMBERS = 16 /* and nothing else was read */
};

/* get_drive_defects(), get_device_defects(). */
enum { TORVANE_DEFECTS_PRIMARY = 1, TORVANE_DEFECTS_GROWN = 2 };

/* get_device_state_full(); get_device_state() and get_drive_state() know the first only. */
enum { TORVANE_STATE_PERMISSION = 1, TORVANE_STATE_FIRMWARE = 2 };

/* ---- Records ------------------------------------------------------------------------------------- */

#ifndef TORVANE_NO_HELPERS
/* A growable list of owned strings. All zero is the empty list. */
typedef struct StringList {
    uint32_t count;
    char **strings;
} StringList;
#endif

/* One SCSI command, caller-owned, sent by send_scsi_cmd(). */
typedef struct ScsiCommand {
    uint64_t cdb_length;     /* valid command bytes; the low byte reaches the kernel */
    unsigned char cdb[50];   /* command descriptor block */
    unsigned char sense[32]; /* cleared before each command */
    int32_t direction;       /* SG_DXFER_* of <scsi/sg.h> */
    uint64_t data_length;    /* bytes; the low 32 bits reach the kernel */
    void *data;              /* caller's buffer of data_length bytes */
} ScsiCommand;

/* Sense data in one form, whichever of the two formats it came in (SPC-4 clause 4.5). */
typedef struct SenseSummary {
    uint8_t response_code;
    uint8_t sense_key;
    uint8_t additional_sense_code;
    uint8_t additional_sense_code_qualifier;
    uint8_t reserved[3];
    uint8_t additional_length; /* descriptor format only */
} SenseSummary;

/* What a device says about itself, in fixed buffers, caller-owned. Zero it before it is used for another
 * device: readers take a name, kind and stat that they find in it as known. */
typedef struct DeviceSpecification {
    char device_name[60]; /* device path */
    char sg_name[60];     /* SCSI generic device path */
    char model[60];
    char serial[60];
    struct stat stat;
    uint32_t major;
    uint32_t minor;
    DeviceKind type;
} DeviceSpecification;

/* One partition of a disk. */
typedef struct PartitionRecord {
    char *name;      /* "/dev/" and the kernel name, owned */
    uint32_t number; /* position on the disk as the kernel lists it, from 1 */
    uint64_t size;   /* bytes */
} PartitionRecord;

/* Partitions in the kernel's order. A list outside a record is released by hand: each name and the array. */
typedef struct PartitionList {
    uint32_t count;
    PartitionRecord *entries;
} PartitionList;

/* One drive. Strings and partitions are owned by the record; -1 means "not read". */
typedef struct DriveRecord {
    DriveType drive_type;
    char *name;         /* device path; null for drives known only through USB */
    char *generic_name; /* SCSI generic device path */
    char *model;
    char *serial;
    int32_t major;
    int32_t minor;
    DeviceKind device_type;
    uint64_t block_count;               /* logical blocks */
    uint64_t device_start;              /* start within the disk, 512-byte sectors */
    uint64_t block_size;                /* bytes per logical block */
    int32_t rotation_speed;             /* rotations per minute */
    int32_t permission;                 /* vendor permission level */
    int32_t status;                     /* BindState */
    int32_t manufacturer_defects;       /* entries of the primary defect list */
    uint32_t manufacturer_defect_bytes; /* bytes of that list */
    int32_t grown_defects;              /* entries of the grown defect list */
    uint32_t grown_defect_bytes;        /* bytes of that list */
    PartitionList partitions;
    char *location;                /* place of a RAID member drive */
    char *raid_device;             /* device of the RAID group that a member belongs to */
    uint32_t geometry_result;      /* result of get_drive_geometry() */
    uint32_t specification_result; /* result of get_drive_specification() */
    uint32_t defects_result;       /* result of get_drive_defects() */
    uint32_t state_result;         /* result of get_drive_state() */
} DriveRecord;

/* Drives; a slot may be null. Count 0 with a null array is the empty list. */
typedef struct DriveList {
    uint32_t count;
    DriveRecord **drives;
} DriveList;

/* Geometry of one device, caller-owned. */
typedef struct DeviceGeometry {
    uint64_t block_count;
    uint64_t device_start;
    uint64_t block_size;
    int32_t rotation_speed; /* rotations per minute, -1 unknown */
    uint32_t partition_count;
    uint32_t reserved;         /* set to 0 */
    uint64_t *partition_sizes; /* set by the caller before the call: room for every partition; bytes */
} DeviceGeometry;

/* Defect lists of one device, caller-owned. */
typedef struct DefectCounts {
    int32_t manufacturer_defects; /* entries, -1 unknown */
    uint32_t manufacturer_defect_bytes;
    int32_t grown_defects; /* entries, -1 unknown */
    uint32_t grown_defect_bytes;
} DefectCounts;

/* Vendor state of one device, caller-owned. */
typedef struct DeviceState {
    int32_t permission;            /* vendor permission level, -1 unknown */
    int32_t firmware_size;         /* bytes */
    unsigned char *firmware_image; /* firmware_size bytes on the heap, the caller's; null when none */
} DeviceState;

/* How one maker's drives are asked for their state. */
typedef struct VendorProbe {
    int (*get_permission)(int fd, const char *path, int *permission);
    int (*get_firmware)(int fd, const char *path, int *size, unsigned char **image);
    int (*supports)(const char *model);
} VendorProbe;

struct RaidDriveGroup;
struct RaidController;

/* One physical drive behind a RAID controller. Strings are owned, `group` and `controller` are not. */
typedef struct RaidDrive {
    uint32_t number; /* Adaptec device number, LSI slot number */
    char *device;    /* SCSI generic node, or a made-up name when none reaches the drive */
    char *serial;
    char *model;
    char *location; /* "(enclosure, slot)" or "(adapter, slot)"; null when the tool gave none */
    uint64_t size;  /* bytes */
    struct RaidDriveGroup *group;
    struct RaidController *controller;
} RaidDrive;

/* One logical drive. */
typedef struct RaidDriveGroup {
    char *name;   /* as the tool prints it, may be empty */
    char *device; /* kernel block device, or a made-up name when none shows the drive */
    int32_t controller_number;
    int32_t logical_number;
    uint64_t size; /* bytes */
    uint32_t drive_count;
    RaidDrive *drives;
    struct RaidController *controller; /* valid until the controller array next moves */
} RaidDriveGroup;

/* One RAID controller: its logical drives, and its physical drives that belong to none. */
typedef struct RaidController {
    uint32_t type;   /* RaidType */
    uint32_t number; /* as its tool counts: Adaptec from 1, LSI from 0 */
    uint32_t group_count;
    RaidDriveGroup *groups;
    uint32_t drive_count;
    RaidDrive *drives;
} RaidController;

/* One SCSI device (logical unit) behind a USB mass-storage interface. Strings are owned. */
typedef struct ScsiDeviceInfo {
    char *name;    /* kernel block-device name, null without a block device */
    char *address; /* host:channel:target:lun */
    char *model;
    char *serial;
    uint32_t state; /* BindState */
    uint32_t type;  /* ScsiType */
    uint64_t size;  /* 512-byte sectors, 0 unknown */
} ScsiDeviceInfo;

/* The devices behind one interface; release_scsi_list(). */
typedef struct ScsiDeviceList {
    ScsiDeviceInfo *devices;
    uint32_t count;
} ScsiDeviceList;

/* One USB mass-storage interface. Strings are owned. */
typedef struct MediaRecord {
    char *name;             /* interface, such as 1-1:1.0 */
    char *serial;           /* USB serial number, empty without one */
    char *model;            /* manufacturer and product */
    uint32_t status;        /* UsbStatus */
    uint32_t has_enclosure; /* 1 when a disk and its enclosure were folded into one device */
    ScsiDeviceList devices;
} MediaRecord;

/* USB mass-storage interfaces; release_media_list(). */
typedef struct MediaList {
    MediaRecord *media;
    uint32_t count;
} MediaList;

/* ---- Error reporting ----------------------------------------------------------------------------- */

/* Formats a message (printf) into the buffer of a category, cut after 253 characters. An unknown category
 * is ignored. */
void set_error_str(uint32_t category, const char *format, ...) TORVANE_NOEXCEPT TORVANE_PRINTF(2, 3);

/* The last message of a category, "No error" before the first. The text belongs to the library and
 * changes with the next failure of the category. Null for an unknown category. */
const char *get_error_str(uint32_t category) TORVANE_NOEXCEPT;

/* 1 when the absolute values of a and b share a bit, else 0: has_error(sum, -1) tells an odd sum. */
int has_error(int32_t a, int32_t b) TORVANE_NOEXCEPT;

/* Folds four counters into one code: 1 when the first two are both positive, else
 * c[0] + (c[1] << 7) + (c[2] << 12) + (c[3] << 14), wrapping. -1 for null. */
int32_t get_error(const int32_t *counters) TORVANE_NOEXCEPT;

/* ---- Strings ------------------------------------------------------------------------------------- */
#ifndef TORVANE_NO_HELPERS

/* Formats (printf) into a new heap string of exactly `size` bytes, the terminator included. A text of any
 * other length is a failure: the place then holds null and the result is -1. */
int dupnprintf(char **out, size_t size, const char *format, ...) TORVANE_NOEXCEPT TORVANE_PRINTF(3, 4);

/* A heap copy; null for null or without memory. */
char *duplicate_str(const char *string) TORVANE_NOEXCEPT;

/* A heap buffer of n + 1 bytes: the first n bytes of the string, NUL-padded and terminated. */
char *duplicate_nstr(const char *string, size_t n) TORVANE_NOEXCEPT;

/* Decimal digits of a number's absolute value, without the sign; 1 for 0. */
int intlen(int32_t number) TORVANE_NOEXCEPT;

/* 1 when the string holds only blanks, tabs and newlines (or nothing), else 0. */
int is_blank(const char *string) TORVANE_NOEXCEPT;

/* 1 when the string ends with the suffix, else 0. */
int ends_with(const char *string, const char *suffix) TORVANE_NOEXCEPT;

/* Leading and trailing white space (isspace) cut: into a buffer of strlen(source) + 1 bytes, in place, or
 * into a heap copy. A string of exactly one white-space character stays as it is. */
int trim(const char *source, char *destination) TORVANE_NOEXCEPT;
int trim_in_place(char *string) TORVANE_NOEXCEPT;
char *trim_new(const char *string) TORVANE_NOEXCEPT;

/* Trailing decimal digits cut. truncate_numbers() ends its text one byte late: for a kept text of n
 * characters it writes bytes 0 to n - 1 and a NUL at n + 1, so hand in n + 2 zeroed bytes. */
char *truncate_numbers_new(const char *string) TORVANE_NOEXCEPT;
int truncate_numbers(const char *source, char *destination) TORVANE_NOEXCEPT;
int truncate_numbers_in_place(char *string) TORVANE_NOEXCEPT;

/* The last token of a string split at the delimiters, as a heap string. Its length, or -1; the place holds
 * null when there is no token. */
int allocate_last_token(const char *string, const char *delimiters, char **token) TORVANE_NOEXCEPT;

/* The last token into a buffer of `size` bytes, cut to fit. The first token ends at the delimiters, later
 * ones at "/". The length of what the buffer then holds, -1 for null or size 0. */
int get_last_token(const char *string, const char *delimiters, size_t size, char *buffer) TORVANE_NOEXCEPT;

/* One whole line of any length, its newline included, into a heap buffer that the caller frees (also after
 * a result of 0). Its length, 0 at end of file, -1 on error (the place then holds null). */
int get_line(char **line, FILE *stream) TORVANE_NOEXCEPT;

/* Bytes from a number and a unit such as "1.5 GB": K, M, G, P and E (either case) stand for the first to
 * the fifth power of 1024, any other letter for 1. Single precision; 0 for null, no or negative numbers. */
uint64_t get_bytes_from_str(const char *text) TORVANE_NOEXCEPT;

/* Cuts a 20-character serial number of a "SEAGATE" model to its first 8 characters when "0000" follows
 * them. In place. */
void truncate_seagate_serial(char *serial, const char *model) TORVANE_NOEXCEPT;

/* Appends a copy. On failure the list keeps its count. */
int add_to_string_list(StringList *list, const char *string) TORVANE_NOEXCEPT;

/* Frees strings and array and leaves the list empty; the record itself is the caller's. */
void release_string_list(StringList *list) TORVANE_NOEXCEPT;

/* ---- Files and commands -------------------------------------------------------------------------- */

/* The descriptor itself when greater than 0, else the path opened read-only; -1 on failure. */
int validate_fd(int fd, const char *path) TORVANE_NOEXCEPT;

/* Closes `active` when validate_fd() opened it, that is when `given` is not greater than 0. */
int close_valid_fd(int given, int active) TORVANE_NOEXCEPT;

/* Writes the text, without terminator or newline, to a file created or truncated. -1 also when the kernel
 * refuses the text on closing, as sysfs control files do. */
int write_to_file(const char *path, const char *text) TORVANE_NOEXCEPT;

/* 1 when the path exists, else 0. */
int file_exists(const char *path) TORVANE_NOEXCEPT;

/* 1 when /dev/NAME exists, 0 when not, -1 for null or without memory. */
int device_exists(const char *name) TORVANE_NOEXCEPT;

/* Runs a command line with /bin/sh and returns the child's process id; reap it with waitpid(), so SIGCHLD
 * must not be ignored. Each stream place that is not null gets the parent's end of that pipe, to be closed
 * with fclose(), or null without memory for a stream; the other ends are closed. The child ignores SIGPIPE.
 * -1, and null in every place, for a null command and when a pipe cannot be made; a failing fork() ends the
 * calling process with status 1. */
pid_t execute(const char *command, FILE **input, FILE **output, FILE **error) TORVANE_NOEXCEPT;

#endif /* TORVANE_NO_HELPERS */

/* ---- Sysfs values and device numbers (category sysfs) -------------------------------------------- */

/* Scans one item with a scanf format, which bounds what it writes into the place. Failure to open: "failed
 * to open '%s'". */
int read_value_from_sys_file(const char *path, const char *format, void *place) TORVANE_NOEXCEPT;

/* As read_value_from_sys_file(), for one string, as a heap string; values are cut at 167 characters. */
int allocate_value_from_sys_file(const char *path, const char *format, char **value) TORVANE_NOEXCEPT;

/* An attribute of a block device (/dev/sda) or SCSI generic device (/dev/sg0) given by its device path, from
 * its "device" directory. `generic` forces the generic directory. The first form scans into the caller's
 * place, the second into a heap string.
 * With `partition` 1 a partition is looked for, but not as the kernel lays it out: the first form takes the
 * name up to its first digit for the disk's (/sys/block/sda1/sda12), the second drops the attribute's last
 * character. Read /sys/class/block/NAME/ATTRIBUTE with read_value_from_sys_file() instead. */
int get_value_from_sys(const char *path, const char *attribute, const char *format, int generic, int partition,
                       void *place) TORVANE_NOEXCEPT;
int _get_value_from_sys(const char *path, const char *attribute, const char *format, int generic, int partition,
                        char **value) TORVANE_NOEXCEPT;

/* Major and minor number from a sysfs "dev" file; both -1 on failure. "failed to read contents of %s",
 * "failed to read device id from '%s'". */
int read_device_id(const char *path, int32_t *major, int32_t *minor) TORVANE_NOEXCEPT;

/* 1 when the block device NAME has this device number, else 0. */
int has_same_device_id(const char *name, uint32_t major, uint32_t minor) TORVANE_NOEXCEPT;

/* ---- Device names (category sysfs) --------------------------------------------------------------- */

/* The kernel name of the disk with this device number, or of the disk that holds the partition with it;
 * heap string, null on failure. A disk's name is its partition's without the digits at the end, so a
 * partition of a disk whose own name ends in a digit gives no device: "nvme0n1p" for nvme0n1p1. */
char *get_name_from_device_id(uint32_t major, uint32_t minor) TORVANE_NOEXCEPT;

/* The SCSI generic node of a block device: its length, 0 when it has none, -1 on failure. The buffer also
 * bounds the link "/sys/block/NAME/device/generic" that is read: one too short for it gives 0 as well, so
 * hand in 60 bytes or more. */
int get_scsi_generic_name(const char *path, size_t size, char *buffer) TORVANE_NOEXCEPT;

/* As get_scsi_generic_name(), a heap string; a device without a generic node is a failure here. */
int allocate_scsi_generic_name(const char *path, char **name) TORVANE_NOEXCEPT;

/* The block device of a SCSI generic node: its length; 0 when the path is no generic node or the link is
 * missing; -1 on failure. */
int get_name_from_generic(const char *path, size_t size, char *buffer) TORVANE_NOEXCEPT;

/* The path that a descriptor is open on, cut to size - 1 characters: its length, of 149 at most, or -1. */
int get_name_from_fd(int fd, char *buffer, size_t size) TORVANE_NOEXCEPT;

/* The file-system UUID that the device manager (udev) knows for the first block device whose name begins
 * with `name`: 1 found (the UUID, or null without one, in the place), 0 no such device, -1 failure. */
int get_file_system_id(const char *name, char **id) TORVANE_NOEXCEPT;

/* 1 when the device carries a file system with a UUID, 0 when not or when `enable` is 0, -1 on failure.
 * `partition_names` is not used. */
int check_bad_filesystem(const char *name, const char *const *partition_names, int32_t enable) TORVANE_NOEXCEPT;

/* ---- SCSI commands ------------------------------------------------------------------------------- */

/* Fills a record: six command bytes, the command's length, the direction (SG_DXFER_*), the data buffer. */
void setup_scsi_cmd(ScsiCommand *command, unsigned char byte0, unsigned char byte1, unsigned char byte2,
                    unsigned char byte3, unsigned char byte4, unsigned char byte5, uint64_t cdb_length,
                    int32_t direction, uint64_t data_length, void *data) TORVANE_NOEXCEPT;

/* Sends the command (SG_IO, time-out 60 s): 0 good, 1 failed, 2 invalid operation code, 3 invalid field in
 * CDB, 4 invalid field in parameter list, 5 unit attention, 6 not ready. A request that the kernel rejects
 * outright counts as good and leaves the data untouched. */
int send_scsi_cmd(int fd, ScsiCommand *command) TORVANE_NOEXCEPT;

/* 1 when the bytes are sense data (SPC-4 clause 4.5), with its summary when a place is given; else 0. */
int decode_sense(const unsigned char *sense, uint32_t count, SenseSummary *summary) TORVANE_NOEXCEPT;

/* ---- Device identity (category identity) --------------------------------------------------------- */

/* Device numbers, generic name, serial number and model of a device: 0, or the sum of -1 no generic name,
 * -2 no serial number, -4 no model; -16 without device numbers. */
int get_device_specification(int fd, const char *path, DeviceSpecification *specification) TORVANE_NOEXCEPT;

/* Device numbers and kind from the descriptor, or from the path when the descriptor is below 1; -16 when
 * there is neither. A failed stat is recorded, not returned. */
int get_device_stat(int fd, const char *path, DeviceSpecification *specification) TORVANE_NOEXCEPT;

/* The generic node of a device of this kind (below 1: found from the path): length of `sg_name`, 0 without
 * one, -8 for a null path. */
int get_generic_name(DeviceKind kind, const char *path, DeviceSpecification *specification) TORVANE_NOEXCEPT;

/* The serial number: SCSI unit-serial-number page (SPC-4), else ATA identity, else USB. 0, or -2. */
int get_device_serial_number(int fd, DeviceSpecification *specification) TORVANE_NOEXCEPT;

/* The model: sysfs, else SCSI INQUIRY or ATA identity by kind. 0, or -4. */
int get_device_model(int fd, DeviceSpecification *specification) TORVANE_NOEXCEPT;

/* Takes the path as `device_name` when it has the device number of the record; else clears both names. */
int verify_device_name(const char *path, DeviceSpecification *specification) TORVANE_NOEXCEPT;

/* The block device path of a generic node into a buffer of 60 bytes; its length, or -1. For a path that is
 * no generic node, and for one whose block device is gone, the buffer stays as it is and the result is the
 * length of the text in it: zero it first, and take 0 for "none". */
int get_device_name_from_generic(const char *path, char *buffer) TORVANE_NOEXCEPT;

/* The generic node of a device path as a heap string. A SCSI disk without one yields 0 and no string. */
int get_sg_name(const char *path, char **name) TORVANE_NOEXCEPT;

/* Prints the record on standard output; printf's count. */
int print_specification(const DeviceSpecification *specification) TORVANE_NOEXCEPT;

/* Identity of a drive into its record: device numbers, kind, generic name, model, serial number. 0; 1 when
 * the path cannot be opened; else the sum of -1 serial, -1 generic name, -4 model, -16 device numbers. */
int get_drive_specification(const char *path, DriveRecord *drive) TORVANE_NOEXCEPT;

/* The serial number as a heap string: USB, else SCSI unit-serial-number page, else ATA identity. The USB one
 * is found by the path in /sys, the others are asked of the descriptor, which must be open: the path is never
 * opened. 0, or -2 with null in the place. */
int get_drive_serial_number(int fd, const char *path, char **serial) TORVANE_NOEXCEPT;

/* The model as a heap string: by the path in /sys, else asked of the descriptor in the way of its kind. The
 * path is needed and never opened. 0, or -4 with null in the place. */
int get_drive_model(int fd, DeviceKind kind, const char *path, char **model) TORVANE_NOEXCEPT;

/* get_drive_serial_number(), shortened where truncate_seagate_serial() says so for the model (null: it is read
 * first). 0, or -1 with null in the place. */
int get_drive_serial(int fd, const char *path, const char *model, char **serial) TORVANE_NOEXCEPT;

/* ---- Drive records and lists (category drive list) ----------------------------------------------- */

/* A new record for a device path; release_drive(). Null on failure. */
DriveRecord *init_drive(const char *name) TORVANE_NOEXCEPT;

/* Makes a record, runs the readers that the options name (identity, geometry, defects, state, in this
 * order) and appends it. A reader's failure stays in the record's result field. */
int create_drive(DriveList *list, const char *name, DriveOptions options) TORVANE_NOEXCEPT;

/* A nameless record of a USB device; the place holds null on failure. */
int create_removable_drive(DriveRecord **drive, const MediaRecord *device) TORVANE_NOEXCEPT;

/* A record of a RAID member drive in slot `index` of the list. Needs device, model, serial and location. */
int create_raid_drive(DriveList *list, const RaidDrive *drive, uint32_t index) TORVANE_NOEXCEPT;

/* A new record that takes over the source's strings and partitions. The source stays valid, and the
 * caller's. Null on failure. */
DriveRecord *move_drive(DriveRecord *source) TORVANE_NOEXCEPT;

/* Frees a record, or every record of a list. `count` keeps its value: set it to 0 to use the list again. */
int release_drive(DriveRecord *drive) TORVANE_NOEXCEPT;
int release_drives(DriveList *list) TORVANE_NOEXCEPT;

/* Adds `extra` null slots. */
int resize_list(DriveList *list, uint32_t extra) TORVANE_NOEXCEPT;

/* Appends a record, which the list then owns. 1 on success, -1 on failure. */
int add_drive_to_list(DriveList *list, DriveRecord *drive) TORVANE_NOEXCEPT;

/* Appends what move_drive() makes of the source. */
int move_drive_to_list(DriveList *list, DriveRecord *source) TORVANE_NOEXCEPT;

/* Appends a record of a USB device or of a RAID member drive. A failure may leave a null slot behind. The
 * second returns 1 on success. */
int add_removable_drive_to_list(const MediaRecord *device, DriveList *list) TORVANE_NOEXCEPT;
int add_raid_drive_to_list(DriveList *list, const RaidDrive *drive) TORVANE_NOEXCEPT;

/* 1 when a record has exactly this name, else 0. */
int drive_in_list(const DriveList *list, const char *name) TORVANE_NOEXCEPT;

/* Completes the first record whose name begins with the device's path: 1 matched, 0 not, -1 failure. With
 * `replace_serial` 1 the record takes the device's serial and drops its own without freeing it. */
int matches_drive(const ScsiDeviceInfo *device, DriveList *list, uint32_t replace_serial) TORVANE_NOEXCEPT;

/* Appends every drive of get_drives() whose serial number begins with the text. Only records that have a
 * serial number can match, and get_drives() gets no names: give DRIVE_OPTION_IDENTITY, and
 * DRIVE_OPTION_SYSTEM or another source. 0 also without a match. A failure halfway releases the list and
 * leaves it empty. */
int get_drive_by_serial(DriveList *out, DriveOptions options, const char *serial) TORVANE_NOEXCEPT;

/* get_drives() for one device path, or for the disk with one device number as get_name_from_device_id() names
 * it. A path that does not exist, or is no device, is no failure: the record then has the name, and
 * TORVANE_NOT_OPENED or a sum in the result fields of the readers that the options name. */
int get_drive(DriveList *list, DriveOptions options, const char *name) TORVANE_NOEXCEPT;
int get_drive_by_id(DriveList *list, DriveOptions options, uint32_t major, uint32_t minor) TORVANE_NOEXCEPT;

/* ---- Drive discovery (category drive list) ------------------------------------------------------- */

/* The library's main entry: fills the list with the drives that the options and device paths name;
 * release_drives(). What the list held is dropped, not released. All or nothing: a failure leaves the list
 * empty, but for one that comes before the list is begun (null or no options, an unreadable /proc/partitions,
 * no memory for the names), which leaves it as it was. Zero it first, and both are one. */
int get_drives(DriveList *list, DriveOptions options, const char *const *names, uint32_t count) TORVANE_NOEXCEPT;

/* As get_drives(), for names that are already merged. */
int get_drives_from_names(DriveList *list, DriveOptions options, const char *const *names,
                          uint32_t count) TORVANE_NOEXCEPT;

/* Device paths of the whole disks in /proc/partitions, or in an open file of that form; the name array is
 * grown and goes back with release_drive_names(). A failure frees the whole array, the names that it held
 * before included, and leaves null and 0. */
int read_drive_names_on_system(char ***names, uint32_t *count) TORVANE_NOEXCEPT;
int read_names_from_file(FILE *file, char ***names, uint32_t *count) TORVANE_NOEXCEPT;

/* 1 for a whole disk (start sector 0, no device-mapper device), else 0. */
int is_drive(const char *path) TORVANE_NOEXCEPT;

/* Appends a heap string, which the array then owns; it stays the caller's on failure. */
int add_drive_name_to_list(char *name, char ***names, uint32_t *count) TORVANE_NOEXCEPT;

/* Appends copies of the names that the array does not hold yet. */
int add_names_to_list(char ***names, uint32_t *count, const char *const *added, uint32_t added_count) TORVANE_NOEXCEPT;

/* Frees the names and the array. */
int release_drive_names(char **names, uint32_t count) TORVANE_NOEXCEPT;

/* Adds the member drives of the logical drive, or the member drive, that has this device name: how many
 * records were added, 0 without a match, -1 on failure. */
int resolve_to_raid(const char *name, DriveList *list, const RaidController *controllers,
                    uint32_t count) TORVANE_NOEXCEPT;

/* Adds all drives of a logical drive: their number, or -1. */
int add_group_to_list(DriveList *list, const RaidDriveGroup *group) TORVANE_NOEXCEPT;

/* Adds every RAID member drive that the list does not name yet. */
int add_all_raid_drives(DriveList *list, const RaidController *controllers, uint32_t count) TORVANE_NOEXCEPT;

/* Marks a record as software RAID (its name is in the array) or iSCSI (its model says so). */
int resolve_to_special(DriveRecord *drive, const char *const *names, uint32_t count) TORVANE_NOEXCEPT;

/* 1 when the name is in the array, else 0. */
int resolve_to_sw_raid(const char *name, const char *const *names, uint32_t count) TORVANE_NOEXCEPT;

/* 1 when the model begins with "IET VIRTUAL-DISK", else 0. */
int is_iscsi(const char *model) TORVANE_NOEXCEPT;

/* Completes the listed drives that are USB mass storage: status, type, missing model and serial number. With
 * `add_unmatched` 1 the others, and every adapter, are appended without a name. A failure may leave a null
 * slot behind. */
int add_removable_media(DriveList *list, uint32_t add_unmatched) TORVANE_NOEXCEPT;

/* Appends the optical drives of /proc/sys/dev/cdrom/info, of an open file of that form, or one path. */
int add_all_optical_drives(DriveList *list, DriveOptions options) TORVANE_NOEXCEPT;
int get_optical_drives_from_file(FILE *file, DriveList *list, DriveOptions options) TORVANE_NOEXCEPT;
int add_optical_drive_to_list(const char *path, DriveList *list, DriveOptions options) TORVANE_NOEXCEPT;

/* ---- Type and status of USB drives --------------------------------------------------------------- */

/* The DriveType of a ScsiType. */
DriveType convert_to_drive_type(int type) TORVANE_NOEXCEPT;

/* Sets `drive_type` and `status` from the devices behind the interface: of an adapter or of a drive,
 * whichever its status says. */
int set_removable_drive_attributes(DriveRecord *drive, const MediaRecord *device) TORVANE_NOEXCEPT;
void set_adapter_status(DriveRecord *drive, const MediaRecord *device) TORVANE_NOEXCEPT;
void set_removable_drive_status(DriveRecord *drive, const MediaRecord *device) TORVANE_NOEXCEPT;

/* ---- Geometry, partitions (category geometry), defect lists (category defects) ------------------- */

/* Bytes per logical block (BLKSSZGET). The place holds 0 on failure. 0, or -1. */
int get_block_size(int fd, uint64_t *size) TORVANE_NOEXCEPT;

/* Logical blocks of `block_size` bytes (0: it is read), or 512-byte sectors where the device tells only
 * those. The place holds 0 on failure. 0, or -2. */
int get_number_of_blocks(int fd, uint64_t block_size, uint64_t *count) TORVANE_NOEXCEPT;

/* Start within the disk in 512-byte sectors: 0 for whole disks. The place holds 0 on failure. 0, or -4. */
int get_device_start(int fd, const char *path, uint64_t *start) TORVANE_NOEXCEPT;

/* Rotations per minute (SBC-3, Block Device Characteristics page); -1 in the place when unknown, solid
 * state included. 0, or -8. */
int get_device_rotation(int fd, const char *path, int32_t *rotation) TORVANE_NOEXCEPT;

/* The partitions that follow the disk in /proc/partitions. 0, or -16. What the list held is overwritten and
 * its names are not freed, here and in the next two: hand in a zeroed list. After a failure it is empty. */
int get_partitions(const char *path, PartitionList *partitions) TORVANE_NOEXCEPT;

/* As get_partitions(), for a kernel name, and for an open file of the form of /proc/partitions. 0, or -1. */
int get_partition(const char *name, PartitionList *partitions) TORVANE_NOEXCEPT;
int parse_partition(FILE *file, const char *name, PartitionList *partitions) TORVANE_NOEXCEPT;

/* Appends one partition: kernel name, size in 1024-byte blocks. `entries` is the address of the list's. */
int add_partition(const char *name, uint64_t blocks, PartitionList *partitions,
                  PartitionRecord **entries) TORVANE_NOEXCEPT;

/* Counts a disk's partitions and stores their sizes in the caller's array, which must have room for all.
 * 0, or -16. */
int get_partition_information(const char *path, DeviceGeometry *geometry) TORVANE_NOEXCEPT;

/* Sizes, start, rotation and partitions: the sum of the readers' results, 1 when the path cannot be opened;
 * for a device also -32 when the block size cannot be read in a second try and -64 without a device name. */
int get_drive_geometry(const char *path, DriveRecord *drive) TORVANE_NOEXCEPT;
int get_device_geometry(int fd, const char *path, DeviceGeometry *geometry) TORVANE_NOEXCEPT;

/* Prints the record on standard output; the last printf's count. */
int print_geometry(const DeviceGeometry *geometry) TORVANE_NOEXCEPT;

/* Entries and bytes of the primary and the grown defect list (SBC-3, READ DEFECT DATA): 0, or the sum of
 * -1 primary, -2 grown; 1 when the drive's path cannot be opened. */
int get_drive_defects(const char *path, DriveRecord *drive) TORVANE_NOEXCEPT;
int get_device_defects(int fd, const char *path, DefectCounts *defects) TORVANE_NOEXCEPT;

/* Prints the record on standard output; the last printf's count. */
int print_defects(const DefectCounts *defects) TORVANE_NOEXCEPT;

/* ---- Software RAID and partition names (category raid) ------------------------------------------- */

/* Device paths of the md arrays in /proc/mdstat, each followed by its partitions; free with
 * release_partition_names(). 0 and no name when there is no /proc/mdstat. */
int get_sw_raid_names(char ***names, uint32_t *count) TORVANE_NOEXCEPT;

/* Kernel names of a disk's partitions. What a failure leaves is released the same way. */
int get_partition_names(char ***names, uint32_t *count, const char *disk) TORVANE_NOEXCEPT;
void release_partition_names(char **names, uint32_t *count) TORVANE_NOEXCEPT;

/* 1 when the kernel name is a partition, 0 when not, -1 on failure. */
int is_partition(const char *name) TORVANE_NOEXCEPT;

/* The name of a partition's disk (trailing digits cut), any other name unchanged: in place, or as a heap
 * string. */
int get_device_name_from_partition(char *name) TORVANE_NOEXCEPT;
char *get_device_name_from_partition_new(const char *name) TORVANE_NOEXCEPT;

/* ---- Vendor state (category state) ---------------------------------------------------------------- */

/* Drives whose model contains "Inno": permission levels 0 to 5, a firmware image of 40,960 bytes. */
extern const VendorProbe innodisk_funcs;

/* Drives whose model contains "MEMKOR" or "YATAPDONG": permission levels 1 to 3, an image of any size. */
extern const VendorProbe memkor_funcs;

/* 1 when the model is one of the maker's, else 0. */
int device_supports_innodisk(const char *model) TORVANE_NOEXCEPT;
int device_supports_memkor(const char *model) TORVANE_NOEXCEPT;

/* The maker's table, or one that says that nothing is known without touching the drive; never null. */
const VendorProbe *select_vendor_probe(const char *model) TORVANE_NOEXCEPT;

/* The permission level of a drive whose record has a model: the probe's result, 1 when the path cannot be
 * opened, -1 without a model. */
int get_drive_state(const char *path, DriveRecord *drive) TORVANE_NOEXCEPT;

/* The permission level of a device; the full form reads the firmware image, too, which the caller frees.
 * 0, or -1; of the full form 0, or the sum of -1 permission, -2 firmware. A device whose model cannot be
 * read gives -1, or -3, and an untouched record. */
int get_device_state(int fd, const char *path, DeviceState *state) TORVANE_NOEXCEPT;
int get_device_state_full(int fd, const char *path, DeviceState *state) TORVANE_NOEXCEPT;

/* Prints the record on standard output; printf's count. */
int print_state(const DeviceState *state) TORVANE_NOEXCEPT;

/* ---- Hardware RAID (category raid) --------------------------------------------------------------- */

/* A system device and what it says about itself: a serial number or a model. Strings are owned. */
typedef struct InfoMapEntry {
    char *device; /* "/dev/" and the kernel name of a disk or of a SCSI generic node */
    char *info;
} InfoMapEntry;

/* One RAID adapter that the kernel drives, or one further disk that it exposes. Strings are owned. */
typedef struct PciInfo {
    uint32_t type;   /* RaidType, and the SCSI channel of the adapter's logical drives */
    uint32_t number; /* among the adapters of one driver, from 0 */
    uint32_t target; /* SCSI target */
    uint32_t lun;    /* SCSI logical unit */
    uint32_t host;   /* SCSI host */
    char *slot;      /* PCI address; null for further disks */
    char *device;    /* block device path; null without one */
} PciInfo;

/* How one maker's controllers are read: whether its tool is there, and what it says, appended to a list. */
typedef struct RaidControllerOps {
    int (*supports)(void);
    int (*get_raids)(RaidController **list, uint32_t *count);
    uint64_t type; /* RaidType */
    const char *name;
} RaidControllerOps;

/* What the library knows: controllers that arcconf reads, and those that megacli reads. */
extern const RaidControllerOps adaptecOperations;
extern const RaidControllerOps lsiOperations;

/* All RAID controllers of the machine, each group and drive with a device name, into a list that the caller
 * gives as null; destroy_raids(). -1 when the naming fails; the list is empty then.
 *
 * Read the result with care, before anybody pulls a disk by it:
 * - An empty list and 0 do not mean that there are no controllers. A maker's tool that fails or prints what
 *   is not understood costs its controllers (LSI) or all of them, the other maker's included (Adaptec), and
 *   still counts as success; the error text of the category tells of the tool's end only.
 * - One drive without size, serial number or model costs all controllers read so far.
 * - The `serial` of an LSI drive is the third word of megacli's "Inquiry Data", and its `model` the first two.
 *   That fits drives whose vendor, model, and serial number are one word each. The field has fixed columns and
 *   no separators, so of many drives the third word is the firmware revision and the serial number in one,
 *   of SATA drives the firmware revision alone, and of models with blanks a word of the model. Identify a
 *   drive by its slot and by what its own label says.
 * - LSI drives are put into the group whose index is the number of their disk group. After logical drives
 *   were deleted, or share a disk group, that is another group than their own.
 * - A device named raid_* or sg_raid_* is made up: no node of that name exists. */
int get_raids(RaidController **list, uint32_t *count) TORVANE_NOEXCEPT;

/* Appends one maker's controllers, none without its tool. What a failure leaves is the caller's, too. */
int get_raids_from_card(RaidController **list, uint32_t *count, const RaidControllerOps *ops) TORVANE_NOEXCEPT;

/* Whether every group has a size and every drive a size, serial number and model: 0, else -1. Shortens
 * serial numbers as truncate_seagate_serial() does. */
int check_raids(RaidController *list, int count) TORVANE_NOEXCEPT;

/* Gives every group and drive its device name: from what the machine says, or from look-ups at hand. */
int relate_drives_to_names(RaidController *list, uint32_t count) TORVANE_NOEXCEPT;
int assign_names_to_raids(RaidController *list, int count, const InfoMapEntry *model_map, uint32_t model_count,
                          const InfoMapEntry *serial_map, uint32_t serial_count, const PciInfo *pci,
                          uint32_t pci_count) TORVANE_NOEXCEPT;

/* A logical drive's block device: the disk whose model ends with a blank and the group's name, else the disk
 * on the adapter and target of its numbers, else "/dev/raid_<type>_<controller>_<logical drive>". */
int relate_group_to_name(const RaidController *controller, RaidDriveGroup *group, const InfoMapEntry *model_map,
                         uint32_t model_count, const PciInfo *pci, int pci_count) TORVANE_NOEXCEPT;

/* A drive's generic node: the one with its serial number, else "/dev/sg_raid_<type>_<controller>_<drive>". */
int relate_drive_to_name(const RaidController *controller, RaidDrive *drive, const InfoMapEntry *serial_map,
                         int serial_count) TORVANE_NOEXCEPT;

/* Serial numbers of the SCSI generic nodes, models of the whole disks, into a map that the caller gives as
 * null; release_info_map(). Devices that cannot be read are left out. The map is empty after a failure. */
int relate_serial_to_drives(InfoMapEntry **map, uint32_t *count) TORVANE_NOEXCEPT;
int relate_model_to_drives(InfoMapEntry **map, uint32_t *count) TORVANE_NOEXCEPT;

/* One entry for a kernel name; both strings are null on failure. */
int read_serial_from_drive(const char *name, InfoMapEntry *entry) TORVANE_NOEXCEPT;
int read_model_from_drive(const char *name, InfoMapEntry *entry) TORVANE_NOEXCEPT;

/* The first three free what a record holds, not the record; the others free the array, too. */
void destroy_drive(RaidDrive *drive) TORVANE_NOEXCEPT;
void destroy_drive_group(RaidDriveGroup *group) TORVANE_NOEXCEPT;
void destroy_controller(RaidController *controller) TORVANE_NOEXCEPT;
void destroy_raids(RaidController *list, int count) TORVANE_NOEXCEPT;
void release_info_map(InfoMapEntry *map, int count) TORVANE_NOEXCEPT;

/* Print on standard output; the last returns the last printf's count. */
int print_drive(const RaidDrive *drive) TORVANE_NOEXCEPT;
int print_group(const RaidDriveGroup *group) TORVANE_NOEXCEPT;
int print_controller(const RaidController *controller) TORVANE_NOEXCEPT;
int print_name_map(const InfoMapEntry *map, int count) TORVANE_NOEXCEPT;

/* 1 when a maker's tool (arcconf, megacli) is there, else 0, and the controllers that it tells, appended. The
 * test runs "which TOOL &> /dev/null": where /bin/sh is no bash, "&>" means "in the background", and the test
 * says 1 whatever there is, and prints the tool's path on the caller's standard output. */
int supports_adaptec(void) TORVANE_NOEXCEPT;
int get_raids_adaptec(RaidController **list, uint32_t *count) TORVANE_NOEXCEPT;
int supports_lsi(void) TORVANE_NOEXCEPT;
int get_raids_lsi(RaidController **list, uint32_t *count) TORVANE_NOEXCEPT;

/* LSI adapters and logical drives, appended to a list: from megacli, or from an open stream of its output. */
int get_ldinfo(RaidController **list, uint32_t *count) TORVANE_NOEXCEPT;
int parse_ldinfo_output(FILE *stream, RaidController **list, uint32_t *count) TORVANE_NOEXCEPT;

/* Adds the physical drives to the adapters that begin at `first`, which must be all that megacli names. */
int get_pdlist(RaidController *first) TORVANE_NOEXCEPT;
int parse_pdlist_output(FILE *stream, RaidController *first) TORVANE_NOEXCEPT;

/* The pieces of an LSI logical drive, each from the line of megacli's output that tells it. The first two
 * append a record and return it; null on failure. */
RaidController *create_new_controller(const char *line, RaidController **list, uint32_t *count) TORVANE_NOEXCEPT;
RaidDriveGroup *create_new_drive_group(const char *line, RaidController *controller) TORVANE_NOEXCEPT;
int set_group_name(const char *line, char **name) TORVANE_NOEXCEPT;
int set_group_size(const char *line, RaidDriveGroup *group) TORVANE_NOEXCEPT;
int set_group_drives(const char *line, RaidDriveGroup *group) TORVANE_NOEXCEPT;

/* RAID adapters and the disks on their logical-drive channels, into a list that the caller gives as null;
 * release_pci_info(). -1 when lspci fails; the list is empty then, and after an unreadable /sys. */
int lookup_pci_info(PciInfo **list, uint32_t *count) TORVANE_NOEXCEPT;
void release_pci_info(PciInfo *list, int count) TORVANE_NOEXCEPT;

/* ---- Watching files ------------------------------------------------------------------------------ */

struct inotify_event;

/* One watched directory; the path is owned. */
typedef struct Watch {
    int wd; /* inotify watch descriptor, -1 once removed */
    char *path;
} Watch;

/* A watched directory tree. */
typedef struct FileMonitor {
    int fd; /* inotify instance */
    uint32_t watch_count;
    Watch *watches;
} FileMonitor;

/* Watches a directory and every directory below it whose name does not begin with ".", for files that are
 * created or closed after writing and for watched directories that are deleted. Directories that appear
 * later are not watched unless they are added. Null on failure; release_monitor(). These functions set no
 * error text. */
FileMonitor *monitor_directory(const char *directory) TORVANE_NOEXCEPT;
void release_monitor(FileMonitor *monitor) TORVANE_NOEXCEPT;

/* Adds a directory tree, one directory, or the watch descriptor of one that the caller watches already. */
int add_watches(FileMonitor *monitor, const char *directory) TORVANE_NOEXCEPT;
int add_watch(FileMonitor *monitor, const char *path) TORVANE_NOEXCEPT;
int add_watch_fd(FileMonitor *monitor, const char *path, int wd) TORVANE_NOEXCEPT;

/* The watch with this descriptor; it belongs to the monitor and moves when watches are added or removed. */
Watch *get_watch(FileMonitor *monitor, int wd) TORVANE_NOEXCEPT;

/* Ends the watch that has the same descriptor as the given one. */
int remove_watch(FileMonitor *monitor, Watch *watch) TORVANE_NOEXCEPT;

/* Reads events into a zeroed heap buffer of 272 bytes, of which the first event counts; release_event(). */
struct inotify_event *read_event(int fd) TORVANE_NOEXCEPT;
void release_event(struct inotify_event *event) TORVANE_NOEXCEPT;

/* Waits without limit for the monitor's next event; null on failure, and as soon as `cancel_fd` is readable
 * (up to 272 bytes of it are consumed). With both readable, the lower descriptor counts. */
struct inotify_event *wait_for_event(FileMonitor *monitor, int cancel_fd) TORVANE_NOEXCEPT;

/* Waits until an event comes whose name begins with `name`: 0 seen, 1 time-out, -1 failure, an interrupting
 * signal included. The time-out is that of the whole wait, however many other events come. The second form
 * watches a directory for the events of an inotify mask. */
int wait_for_file_event(int inotify_fd, const char *name, uint32_t timeout_seconds) TORVANE_NOEXCEPT;
int wait_for_file_event_type(const char *directory, const char *name, uint32_t timeout_seconds,
                             uint32_t mask) TORVANE_NOEXCEPT;

/* Wait until the file is gone, or is there: 0, or -1 for a failure or a time-out. A change that falls
 * between the first look and the start of the watch is missed. */
int wait_till_file_is_deleted(const char *directory, const char *name, uint32_t timeout_seconds) TORVANE_NOEXCEPT;
int wait_till_file_is_created(const char *directory, const char *name, uint32_t timeout_seconds) TORVANE_NOEXCEPT;

/* ---- SCSI devices behind USB interfaces (category device) ---------------------------------------- */

/* What a new list is initialised with. */
extern const MediaList empty_media_list;

/* Appends a record, of which only the name is set; the list's. A failed copy of the name leaves the zeroed
 * record in the list. "failed to allocate media information", "failed to allocate usb name '%s'". */
MediaRecord *add_entry_to_info_list(const char *name, MediaList *list) TORVANE_NOEXCEPT;

/* Appends a device, of which only the address is set. A failed copy leaves the zeroed device in the list. */
int add_scsi_device_to_list(ScsiDeviceList *list, const char *address) TORVANE_NOEXCEPT;

/* Replaces everything but `size`. */
int copy_scsi_device_info(ScsiDeviceInfo *destination, const ScsiDeviceInfo *source) TORVANE_NOEXCEPT;

/* A deep copy, but for `status` and the devices' `size`, which are 0; release_media(). */
MediaRecord *copy_media_info(const MediaRecord *media) TORVANE_NOEXCEPT;

/* The kernel driver of a ScsiType: "sd", "st", "sr" or "ses"; null for any other type. */
const char *get_driver_name_from_type(uint32_t type) TORVANE_NOEXCEPT;

/* Sets `type` from its decimal text. "found invalid driver type '%s'". */
int get_driver_from_type(const char *text, ScsiDeviceInfo *device) TORVANE_NOEXCEPT;

/* 1 for a BindState, else 0. */
int is_valid_state(uint32_t state) TORVANE_NOEXCEPT;

/* Reads everything about an interface afresh; the record needs its `name`. What a failure leaves still has
 * to be released. */
int update_device_information(MediaRecord *media) TORVANE_NOEXCEPT;

/* The steps of it, in order: the devices behind the interface; serial number and model of the USB device;
 * each device's type; a disk and its enclosure folded into one device, which takes the USB serial number;
 * each device's state, name, size, model and serial number, and the record's status. */
int get_scsi_addresses(MediaRecord *media) TORVANE_NOEXCEPT;
int get_usb_information(MediaRecord *media) TORVANE_NOEXCEPT;
int get_driver_information(MediaRecord *media) TORVANE_NOEXCEPT;
int check_ses_enclosure(MediaRecord *media) TORVANE_NOEXCEPT;
int get_device_status(MediaRecord *media) TORVANE_NOEXCEPT;

/* A text attribute of a USB device such as 1-1, trimmed, as a heap string; empty when it cannot be read. */
int get_info_type(char **out, const char *usb_device, const char *attribute) TORVANE_NOEXCEPT;

/* Sets `name`: 1, or 0 for a device without a block device. */
int get_device_name(ScsiDeviceInfo *device) TORVANE_NOEXCEPT;

/* Sets `name`: 1 when it or one of its partitions has a node in /dev, else 0. */
int has_device_node(ScsiDeviceInfo *device) TORVANE_NOEXCEPT;

/* 1 when the device is bound to the driver of its type, else 0. */
int is_bound_to_driver(const ScsiDeviceInfo *device) TORVANE_NOEXCEPT;

/* Sets `size`; 0 without a name. */
int get_device_size(ScsiDeviceInfo *device) TORVANE_NOEXCEPT;

/* Sets `model` and, unless `skip_serial`, `serial` from the device itself, through a private node; what
 * cannot be read is null. */
int get_drive_information(ScsiDeviceInfo *device, uint32_t skip_serial) TORVANE_NOEXCEPT;

/* 1 when a device in STATE_NODE, or one of its partitions, has this device number, else 0. */
int device_matches_id(const MediaRecord *media, uint32_t major, uint32_t minor) TORVANE_NOEXCEPT;

/* The lists are empty afterwards and the caller's; release_media() frees the record, too. */
void release_scsi_list(ScsiDeviceList *list) TORVANE_NOEXCEPT;
void release_media(MediaRecord *media) TORVANE_NOEXCEPT;
void release_media_list(MediaList *list) TORVANE_NOEXCEPT;

/* ---- Device nodes (category device) -------------------------------------------------------------- */

/* Make a block device node with permission bits 0000 for a disk or a partition, by kernel name: at a path,
 * or under that name in a directory. "failed to mknod %s (%d:%d)". */
int create_node(const char *name, const char *path) TORVANE_NOEXCEPT;
int create_node_in(const char *name, const char *directory) TORVANE_NOEXCEPT;
int create_partition_node(const char *partition, const char *disk, const char *path) TORVANE_NOEXCEPT;
int create_partition_node_in(const char *partition, const char *disk, const char *directory) TORVANE_NOEXCEPT;

/* Removes a node. A node that cannot be removed leaves "failed to remove '%s' (%s)", and 0. */
int delete_node_in(const char *name, const char *directory) TORVANE_NOEXCEPT;

/* The nodes of a device and its partitions. Nothing is made for a device in STATE_NODE in "/dev", nor for
 * one with a bad file-system layout. They set `state` to STATE_NODE and STATE_BOUND. */
int add_scsi_device_nodes_at(ScsiDeviceInfo *device, const char *directory) TORVANE_NOEXCEPT;
int delete_scsi_device_nodes_at(ScsiDeviceInfo *device, const char *directory) TORVANE_NOEXCEPT;

/* Nodes of an interface's devices, by serial number. They are made for every device when the text
 * begins the USB serial number, else for the devices whose own serial number it begins; they are deleted
 * only for devices where it begins both. A failure to make one deletes, by that narrower choice, the nodes of
 * all devices in the directory, those that were there before the call included. */
int add_device_nodes_at(MediaRecord *media, const char *serial, const char *directory) TORVANE_NOEXCEPT;
int delete_device_nodes_at(MediaRecord *media, const char *serial, const char *directory) TORVANE_NOEXCEPT;

/* ---- Driver binding and device state (category device) ------------------------------------------- */

/* One device to or from the driver of its type; 0 also when there is nothing to do. */
int unbind_scsi_device_from_driver(ScsiDeviceInfo *device) TORVANE_NOEXCEPT;
int bind_scsi_device_to_driver(ScsiDeviceInfo *device) TORVANE_NOEXCEPT;

/* Moves one device from its `state` to a BindState. From STATE_UNBOUND to STATE_NODE the device is only bound.
 * A failed step is undone without asking what was there before or whether the device is in use: binding is
 * followed by an unbinding; a node that cannot be made (it exists, say) by the removal of the device's nodes
 * from /dev and by an unbinding, mounted or not; removing nodes by making them; unbinding by binding and
 * making nodes. Ask for STATE_NODE only where /dev/NAME does not exist. */
int change_scsi_device_state(ScsiDeviceInfo *device, uint32_t new_state) TORVANE_NOEXCEPT;

/* Every device of an interface. Unbinding goes on after failures; a failed bind unbinds them all, those that
 * were bound before the call included. Nothing here asks whether a file system of the device is mounted: an
 * unbound device is gone from under it. */
int unbind_usb_device_from_driver(MediaRecord *media) TORVANE_NOEXCEPT;
int bind_usb_device_to_driver(MediaRecord *media) TORVANE_NOEXCEPT;

/* The whole interface when the text begins its USB serial number, else the first device whose serial number
 * it begins. */
int unbind_device_from_driver(MediaRecord *media, const char *serial) TORVANE_NOEXCEPT;
int bind_device_to_driver(MediaRecord *media, const char *serial) TORVANE_NOEXCEPT;

/* Every device of the interface, or those whose serial number the text begins. An adapter named by its USB
 * serial number is unbound whatever the new state. 0 also when nothing matches. */
int change_device_state(MediaRecord *media, const char *serial, uint32_t new_state) TORVANE_NOEXCEPT;

/* As change_device_state() and its kin, for the interface that get_usb_mass_storage_device() finds. */
int change_state(const char *serial, uint32_t new_state) TORVANE_NOEXCEPT;
int bind_to_driver(const char *serial) TORVANE_NOEXCEPT;
int unbind_from_driver(const char *serial) TORVANE_NOEXCEPT;
int remove_device_nodes(const char *serial) TORVANE_NOEXCEPT;

/* Binds and waits, 2 seconds for each step, until the first device has its block device and, unless
 * `wait_for_devices`, until its node is gone from /dev. Category mount. Every failure after the bind unbinds
 * what the text names, also where it was bound before the call and a file system of it is mounted: an adapter
 * ("device is an adapter") and a node that stays are such failures. */
int bind_to_driver_with_wait(const char *serial, uint32_t wait_for_devices) TORVANE_NOEXCEPT;
int bind_to_driver_with_wait_for_devices(const char *serial) TORVANE_NOEXCEPT;
int bind_to_driver_with_wait_for_driver(const char *serial) TORVANE_NOEXCEPT;

/* ---- USB mass storage and media (category device) ------------------------------------------------ */

/* Append the machine's USB mass-storage interfaces: their names only, or everything. The second leaves the
 * list empty on failure. 0 also without the kernel's driver. */
int get_usb_mass_storage_names(MediaList *list) TORVANE_NOEXCEPT;
int get_usb_mass_storage_devices(MediaList *list) TORVANE_NOEXCEPT;

/* A copy (see copy_media_info()) of the first interface whose USB serial number, or one of whose devices'
 * serial numbers, begins with the text; or of the one that device_matches_id(). Null when there is none. */
MediaRecord *get_usb_mass_storage_device(const char *serial) TORVANE_NOEXCEPT;
MediaRecord *get_usb_mass_storage_device_by_id(uint32_t major, uint32_t minor) TORVANE_NOEXCEPT;

/* The UsbStatus that the devices of an interface give it. */
uint32_t get_usb_status(const MediaRecord *media) TORVANE_NOEXCEPT;

/* The highest BindState of the devices; 0 without any. */
int32_t get_media_status(const MediaRecord *media) TORVANE_NOEXCEPT;

/* 1 when a file system lies on the whole device although it has partitions, else 0: one device, or those
 * that add_device_nodes_at() would choose. */
int check_single_node_for_bad_filesystem(const ScsiDeviceInfo *device, const char *const *partition_names,
                                         uint32_t count) TORVANE_NOEXCEPT;
int check_entire_device_for_bad_filesystem(const MediaRecord *media, const char *serial) TORVANE_NOEXCEPT;

/* Whether the tray is open and whether there is a disc. Both places hold 0 on failure. "cd drive not
 * ready" after three attempts, also for a drive that another process holds. */
int get_optical_drive_status(const char *path, uint32_t *tray_open, uint32_t *has_disc) TORVANE_NOEXCEPT;

/* Locks the drive (fcntl write lock) until the descriptor is closed, or any other descriptor of the same drive
 * in the same process, get_optical_drive_status() of it included. */
int lock_optical_drive(int fd) TORVANE_NOEXCEPT;

/* ---- Mounting (category mount) ------------------------------------------------------------------- */

/* Mounts the file systems of a USB device read-only in a new directory below /tmp, through nodes of its own
 * beside them: NODE is mounted on NODE_mount, partitions only when there are any. The directory's path goes
 * to the caller, who frees it and hands it to the second function to undo it all. All or nothing: one
 * partition without a known file system, an extended partition included, fails the call. Nodes work only
 * where /tmp is not mounted nodev. The second function takes only what the first one made: see
 * umount_directory(). */
int create_and_mount_in_temp_dir(const char *serial, char **directory) TORVANE_NOEXCEPT;
int remove_and_umount_in_temp_dir(const char *directory) TORVANE_NOEXCEPT;

/* Mounts a node read-only and nosuid: on a mount point, on NODE_mount made in the node's directory, or so
 * for every node of a directory; the first in alphabetical order (the whole disk) is left out when there
 * are several. "failed to mount %s on %s: %d" (exit code).
 * "Read-only" is `mount -o nosuid,ro` and no more: device nodes and programs of the file system work (no
 * nodev, no noexec), and a journal that needs it is replayed, which writes to the device.
 * The paths go through the shell as they are: never hand in one that anybody else can name, since blanks and
 * characters such as $ ; ` make other commands of it. */
int mount_device(const char *node, const char *mount_point) TORVANE_NOEXCEPT;
int mount_device_to_temp_dir(const char *node_name, const char *directory) TORVANE_NOEXCEPT;
int mount_all_devices(const char *directory) TORVANE_NOEXCEPT;

/* 1 when /proc/mounts has this very path as a mount point, else 0. */
int is_mounted(const char *path) TORVANE_NOEXCEPT;

/* Unmounts a mount point, or every directory of a directory; 0 also for what is not mounted.
 * The paths go through the shell, as with mount_device(), here the names of a directory's entries included: a
 * directory that others can write to, or that they can exchange between the look and the unmounting, lets
 * them run commands with the caller's privileges. Hand in only directories of the caller's own, mode 0700. */
int umount_directory(const char *mount_point) TORVANE_NOEXCEPT;
int umount_all(const char *directory) TORVANE_NOEXCEPT;

/* Removes a directory's entries, but for those whose name begins with "."; not recursive. By path: see
 * umount_directory() on directories of others. */
int remove_all_from(const char *directory) TORVANE_NOEXCEPT;

/* A filter for scandir(): 1 for a block device, else 0. */
int block_device_filter(const struct dirent *entry) TORVANE_NOEXCEPT;

/* ---- Later sections go above this line ----------------------------------------------------------- */

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif
