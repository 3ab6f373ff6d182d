#include "answers.h"
#include "sweep.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <glob.h>
#include <libudev.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <mntent.h>
#include <poll.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

namespace torvane::world {
namespace {

// Numbers that the headers no longer have, or never had.
constexpr unsigned long kGetBigGeometry = 0x0330; // HDIO_GETGEO_BIG
constexpr unsigned long kGetIdlun = 0x5382;       // SCSI_IOCTL_GET_IDLUN

struct Device {
    std::string name;
    mode_t type;
    dev_t number;
    std::shared_ptr<FakeDisk> disk;
};

// By file system and inode: a device stays one when its path is renamed or removed while open.
using Devices = std::map<std::pair<dev_t, ino_t>, Device>;

struct State {
    Answers answers;
    Devices devices;
};
State &state() {
    static State kept;
    return kept;
}

template <class Function> Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

int real_fstat(int fd, struct stat *status) { return next<int(int, struct stat *)>("fstat")(fd, status); }

const Device *device_of(const struct stat &status) {
    const auto found = state().devices.find({status.st_dev, status.st_ino});
    return found == state().devices.end() ? nullptr : &found->second;
}

void complete(struct stat *status) {
    const Device *device = device_of(*status);
    if (device == nullptr) return;
    status->st_mode = device->type | (status->st_mode & 07777U);
    status->st_rdev = device->number;
}

// Fails when it is this call's turn, else asks the hook, and lets the calls that the hook itself makes pass it by.
template <class Result, class Hook, class... Arguments>
Result answered(const char *name, Result failure, const Hook &hook, Arguments... arguments) {
    static thread_local bool inside = false;
    if (fails_now(Step::kCall, name)) return failure;
    if (hook && !inside) {
        const Uncounted pause;
        inside = true;
        const std::optional<Result> answer = hook(arguments...);
        inside = false;
        if (answer) return *answer;
    }
    return next<Result(Arguments...)>(name)(arguments...);
}

// The calls that only take part in failure sweeps.
template <class Result, class... Arguments> Result passed(const char *name, Result failure, Arguments... arguments) {
    return fails_now(Step::kCall, name) ? failure : next<Result(Arguments...)>(name)(arguments...);
}

template <class Result, class... Arguments> Result asked(const char *name, Result failure, Arguments... arguments) {
    if (fails_now(Step::kCall, name)) return failure;
    const Uncounted pause(!answers().sweep_udev);
    return next<Result(Arguments...)>(name)(arguments...);
}

// Those that tell of a device what the fixture knows.
template <class... Arguments> int status_of(const char *name, struct stat *status, Arguments... arguments) {
    const int result = passed(name, -1, arguments...);
    if (result == 0) complete(status);
    return result;
}

// A reader of a stream leaves the stream's error mark behind, as the C library's own would.
template <class Result, class... Arguments>
Result read_from(std::FILE *stream, const char *name, Result failure, Arguments... arguments) {
    if (!fails_now(Step::kCall, name)) return next<Result(Arguments...)>(name)(arguments...);
    stream->_flags |= _IO_ERR_SEEN;
    return failure;
}

// What is closed is closed, whatever is said of it.
template <class Result, class Handle> Result closed(const char *name, Result failure, Handle handle) {
    const bool fails = fails_now(Step::kCall, name);
    const int error = errno;
    const Result result = next<Result(Handle)>(name)(handle);
    if (!fails) return result;
    errno = error;
    return failure;
}

// How many bytes the command's allocation length lets the device send; commands without one: all.
size_t allocation_length(const Bytes &cdb) {
    switch (cdb[0]) {
    case 0x12: return size_t{cdb[3]} << 8 | cdb[4];
    case 0x37: return size_t{cdb[7]} << 8 | cdb[8];
    case 0xB7: return size_t{cdb[6]} << 24 | size_t{cdb[7]} << 16 | size_t{cdb[8]} << 8 | cdb[9];
    default: return SIZE_MAX;
    }
}

Reply check_condition() { return {.data = {}, .status = 2, .host_status = 0, .driver_status = 8, .error = 0}; }

Reply defects(const FakeDisk &disk, const Bytes &cdb) {
    const bool is_long = cdb[0] == 0xB7;
    const unsigned char flags = is_long ? cdb[1] : cdb[2];
    const auto &list = (flags & 0x10) != 0 ? disk.primary_defects : disk.grown_defects;
    if (!list) return check_condition();
    const auto byte = [](uint32_t value, int shift) { return static_cast<unsigned char>(value >> shift); };
    const auto header = static_cast<unsigned char>((flags & 0xF8) | list->format);
    const uint32_t length = is_long ? list->bytes : std::min<uint32_t>(list->bytes, 0xFFFF);
    Bytes data = is_long ? Bytes{0, header, 0, 0, byte(length, 24), byte(length, 16), byte(length, 8), byte(length, 0)}
                         : Bytes{0, header, byte(length, 8), byte(length, 0)};
    data.resize(std::min(data.size() + length, allocation_length(cdb)));
    return {.data = std::move(data)};
}

Reply scsi_reply(const FakeDisk &disk, const Bytes &cdb) {
    if (disk.answer) {
        if (auto reply = disk.answer(cdb)) return *std::move(reply);
    }
    Reply reply = check_condition();
    if (cdb[0] == 0x12 && (cdb[1] & 1) == 0 && !disk.inquiry.empty()) reply = {.data = disk.inquiry};
    if (cdb[0] == 0x12 && (cdb[1] & 1) != 0 && disk.pages.contains(cdb[2])) reply = {.data = disk.pages.at(cdb[2])};
    if (cdb[0] == 0x37 || cdb[0] == 0xB7) reply = defects(disk, cdb);
    reply.data.resize(std::min(reply.data.size(), allocation_length(cdb)));
    return reply;
}

int refuse(int error) {
    errno = error;
    return -1;
}

int answer_scsi(const FakeDisk &disk, sg_io_hdr *request) {
    Bytes cdb(request->cmdp, request->cmdp + request->cmd_len);
    cdb.resize(16);
    const Reply reply = scsi_reply(disk, cdb);
    if (reply.error != 0) return refuse(reply.error);
    const size_t count = std::min<size_t>(reply.data.size(), request->dxfer_len);
    std::copy_n(reply.data.data(), count, static_cast<unsigned char *>(request->dxferp));
    request->status = reply.status;
    request->host_status = reply.host_status;
    request->driver_status = reply.driver_status;
    std::copy_n(reply.sense.data(), std::min<size_t>(reply.sense.size(), request->mx_sb_len), request->sbp);
    return 0;
}

int fail_on_the_way(sg_io_hdr *request) {
    request->host_status = 1; // no connection
    return 0;
}

template <class Value, class Source> int put(void *place, const std::optional<Source> &value) {
    if (!value) return refuse(ENOTTY);
    const auto converted = static_cast<Value>(*value);
    std::memcpy(place, &converted, sizeof converted);
    return 0;
}

int put_geometry(void *place, const std::optional<uint64_t> &start, size_t offset) {
    return put<unsigned long>(static_cast<char *>(place) + offset, start);
}

int send_command(const FakeDisk &disk, void *argument) {
    uint32_t length = 0;
    std::memcpy(&length, static_cast<char *>(argument) + 4, sizeof length);
    if (disk.inquiry.empty()) return refuse(EIO);
    std::memcpy(static_cast<char *>(argument) + 8, disk.inquiry.data(), std::min<size_t>(length, disk.inquiry.size()));
    return 0;
}

int answer_request(const FakeDisk &disk, unsigned long request, void *argument) {
    if (disk.failing.contains(request)) return refuse(EIO);
    if (disk.request) {
        if (const auto answer = disk.request(request, argument)) return *answer;
    }
    switch (request) {
    case BLKSSZGET: return put<int>(argument, disk.block_size);
    case BLKGETSIZE64: return put<uint64_t>(argument, disk.size);
    case BLKGETSIZE:
        return put<unsigned long>(argument,
                                  disk.sectors || !disk.size ? disk.sectors : std::optional(*disk.size / 512));
    case HDIO_GETGEO: return put_geometry(argument, disk.start, offsetof(hd_geometry, start));
    case kGetBigGeometry: return put_geometry(argument, disk.big_start, 8);
    case HDIO_GET_IDENTITY:
        if (!disk.ata_identity) return refuse(ENOTTY);
        std::memcpy(argument, disk.ata_identity->data(), std::min<size_t>(512, disk.ata_identity->size()));
        return 0;
    case kGetIdlun: return put<uint32_t>(static_cast<char *>(argument) + 4, disk.idlun);
    case SCSI_IOCTL_SEND_COMMAND: return send_command(disk, argument);
    case SG_IO: return answer_scsi(disk, static_cast<sg_io_hdr *>(argument));
    default: return refuse(ENOTTY);
    }
}

std::string describe(unsigned long request, const void *argument) {
    static const std::map<unsigned long, std::string> kNames = {
        {BLKSSZGET, "BLKSSZGET"},
        {BLKGETSIZE64, "BLKGETSIZE64"},
        {BLKGETSIZE, "BLKGETSIZE"},
        {HDIO_GETGEO, "HDIO_GETGEO"},
        {kGetBigGeometry, "HDIO_GETGEO_BIG"},
        {HDIO_GET_IDENTITY, "HDIO_GET_IDENTITY"},
        {kGetIdlun, "SCSI_IOCTL_GET_IDLUN"},
        {SCSI_IOCTL_SEND_COMMAND, "SCSI_IOCTL_SEND_COMMAND"},
    };
    char number[20];
    if (request != SG_IO) {
        std::snprintf(number, sizeof number, "0x%04lx", request);
        const auto name = kNames.find(request);
        return name == kNames.end() ? number : name->second;
    }
    const auto *header = static_cast<const sg_io_hdr *>(argument);
    std::string text = "SG_IO";
    for (unsigned i = 0; i < header->cmd_len; ++i) {
        std::snprintf(number, sizeof number, " %02x", header->cmdp[i]);
        text += number;
    }
    return text;
}

void append(Bytes &bytes, std::string_view text, size_t width) {
    for (size_t i = 0; i < width; ++i) bytes.push_back(i < text.size() ? static_cast<unsigned char>(text[i]) : ' ');
}

} // namespace

void FakeDisk::set_inquiry(std::string_view vendor, std::string_view product, unsigned char type) {
    inquiry = {type, 0, 5, 2, 31, 0, 0, 0};
    append(inquiry, vendor, 8);
    append(inquiry, product, 16);
    append(inquiry, "1.0", 4);
}

void FakeDisk::set_serial(std::string_view serial) {
    pages[0x00] = {0, 0x00, 0, 3, 0x00, 0x80, 0xB1};
    pages[0x80] = {0, 0x80, 0, static_cast<unsigned char>(serial.size())};
    append(pages[0x80], serial, serial.size());
}

void FakeDisk::set_rotation(unsigned rate) {
    Bytes page = {0, 0xB1, 0, 60, static_cast<unsigned char>(rate >> 8), static_cast<unsigned char>(rate)};
    page.resize(64);
    pages[0xB1] = page;
}

void FakeDisk::set_ata_identity(std::string_view serial, std::string_view model) {
    Bytes identity(512);
    std::ranges::copy(serial, identity.begin() + 20);
    std::ranges::copy(model, identity.begin() + 54);
    ata_identity = identity;
}

void FakeDisk::be_innodisk(unsigned char permission, std::function<bool(int sector)> fails) {
    request = [=](unsigned long asked, void *argument) -> std::optional<int> {
        auto *bytes = static_cast<unsigned char *>(argument);
        if (asked != HDIO_DRIVE_CMD) return std::nullopt;
        const bool smart = bytes[0] == 0xB0 && bytes[1] == 0 && bytes[2] == 0xD0 && bytes[3] == 1;
        const bool firmware = bytes[0] == 0xFC && bytes[1] == 0 && bytes[3] == 1;
        if ((!smart && !firmware) || (firmware && fails && fails(bytes[2]))) return refuse(EIO);
        if (smart) bytes[4 + 55] = permission;
        if (firmware) std::memset(bytes + 4, bytes[2] + 1, 512);
        return 0;
    };
}

void Answers::add_device(const std::string &path, mode_t type, dev_t number, std::shared_ptr<FakeDisk> disk) {
    struct stat status = {};
    if (next<int(const char *, struct stat *)>("stat")(path.c_str(), &status) != 0) return;
    const std::string name = path.substr(path.rfind('/') + 1);
    state().devices[{status.st_dev, status.st_ino}] = {name, type, number, std::move(disk)};
}

Answers &answers() { return state().answers; }

void reset_answers() { state() = State(); }

} // namespace torvane::world

// ---- The answering functions ---------------------------------------------------------------------------

using namespace torvane::world;

extern "C" {

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    const bool fails = fails_now(Step::kCall, "ioctl");
    const Uncounted pause;
    // A command that is refused outright counts as good, by contract; one that fails on its way does not.
    if (fails && request == SG_IO) return fail_on_the_way(static_cast<sg_io_hdr *>(argument));
    if (fails) return -1;
    if (answers().ioctl) return answers().ioctl(fd, request, argument);
    struct stat status = {};
    const auto *device = real_fstat(fd, &status) == 0 ? device_of(status) : nullptr;
    if (device == nullptr || !device->disk) return next<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
    answers().log.push_back(device->name + ' ' + describe(request, argument));
    return answer_request(*device->disk, request, argument);
}

int fstat(int fd, struct stat *status) noexcept { return status_of("fstat", status, fd, status); }
int lstat(const char *path, struct stat *status) noexcept { return status_of("lstat", status, path, status); }
int stat(const char *path, struct stat *status) noexcept { return status_of("stat", status, path, status); }
int fstatat(int directory, const char *path, struct stat *status, int flags) noexcept {
    return status_of("fstatat", status, directory, path, status, flags);
}

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return answered("open", -1, answers().open, path, flags, mode);
}
int mknod(const char *path, mode_t mode, dev_t device) noexcept {
    return answered("mknod", -1, answers().mknod, path, mode, device);
}
int system(const char *command) { return answered("system", -1, answers().system, command); }
int inotify_init() noexcept { return answered("inotify_init", -1, answers().inotify_init); }
int select(int count, fd_set *read, fd_set *write, fd_set *error, timeval *timeout) {
    return answered("select", -1, answers().select, count, read, write, error, timeout);
}

// A child is none of its parent's steps.
pid_t fork() noexcept {
    if (answers().fork) return *answers().fork();
    if (answers().sweep_fork && fails_now(Step::kCall, "fork")) return -1;
    const pid_t child = next<pid_t()>("fork")();
    if (child == 0) stop_sweep();
    return child;
}

// A wait that fails for good finds nobody to wait for: the kernel has reaped the child itself.
pid_t waitpid(pid_t child, int *status, int options) {
    if (!fails_now(Step::kCall, "waitpid")) return next<pid_t(pid_t, int *, int)>("waitpid")(child, status, options);
    if (errno == EINTR) return -1;
    next<pid_t(pid_t, int *, int)>("waitpid")(child, nullptr, 0);
    errno = ECHILD;
    return -1;
}

FILE *fopen(const char *path, const char *mode) {
    return answered<FILE *>("fopen", nullptr, answers().fopen, path, mode);
}
FILE *fdopen(int fd, const char *mode) noexcept { return passed<FILE *>("fdopen", nullptr, fd, mode); }
FILE *fmemopen(void *text, size_t size, const char *mode) noexcept {
    return passed<FILE *>("fmemopen", nullptr, text, size, mode);
}
FILE *setmntent(const char *path, const char *mode) noexcept {
    return passed<FILE *>("setmntent", nullptr, path, mode);
}
DIR *opendir(const char *path) { return passed<DIR *>("opendir", nullptr, path); }
dirent *readdir(DIR *directory) { return passed<dirent *>("readdir", nullptr, directory); }
ssize_t readlink(const char *path, char *buffer, size_t size) noexcept {
    return passed<ssize_t>("readlink", -1, path, buffer, size);
}
char *realpath(const char *path, char *resolved) noexcept {
    return passed<char *>("realpath", nullptr, path, resolved);
}
ssize_t read(int fd, void *buffer, size_t size) { return passed<ssize_t>("read", -1, fd, buffer, size); }
int glob(const char *pattern, int flags, int (*error)(const char *, int), glob_t *found) noexcept {
    return passed("glob", GLOB_ABORTED, pattern, flags, error, found);
}
int access(const char *path, int mode) noexcept { return passed("access", -1, path, mode); }
int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return passed("fcntl", -1, fd, command, argument);
}
char *mkdtemp(char *pattern) noexcept { return passed<char *>("mkdtemp", nullptr, pattern); }
int mkdir(const char *path, mode_t mode) noexcept { return passed("mkdir", -1, path, mode); }
int unlink(const char *path) noexcept { return passed("unlink", -1, path); }
int rmdir(const char *path) noexcept { return passed("rmdir", -1, path); }
int remove(const char *path) noexcept { return passed("remove", -1, path); }
int pipe(int *ends) noexcept { return passed("pipe", -1, ends); }
int pipe2(int *ends, int flags) noexcept { return passed("pipe2", -1, ends, flags); }
int poll(pollfd *descriptors, nfds_t count, int timeout) { return passed("poll", -1, descriptors, count, timeout); }
int inotify_init1(int flags) noexcept { return passed("inotify_init1", -1, flags); }
int inotify_add_watch(int fd, const char *path, uint32_t mask) noexcept {
    return passed("inotify_add_watch", -1, fd, path, mask);
}

// The calls that name a folder, and others of the inventory's alone.
int openat(int folder, const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return passed("openat", -1, folder, path, flags, mode);
}
ssize_t readlinkat(int folder, const char *path, char *buffer, size_t size) noexcept {
    return passed<ssize_t>("readlinkat", -1, folder, path, buffer, size);
}
int faccessat(int folder, const char *path, int mode, int flags) noexcept {
    return passed("faccessat", -1, folder, path, mode, flags);
}
DIR *fdopendir(int folder) { return passed<DIR *>("fdopendir", nullptr, folder); }
int unlinkat(int folder, const char *path, int flags) noexcept { return passed("unlinkat", -1, folder, path, flags); }
ssize_t write(int fd, const void *data, size_t size) { return passed<ssize_t>("write", -1, fd, data, size); }

int close(int fd) { return closed("close", -1, fd); }
int close_range(unsigned first, unsigned last, int flags) noexcept {
    return passed("close_range", -1, first, last, flags);
}
int fclose(FILE *stream) { return closed("fclose", EOF, stream); }

char *fgets(char *line, int size, FILE *stream) {
    return read_from<char *>(stream, "fgets", nullptr, line, size, stream);
}
size_t fread(void *data, size_t size, size_t count, FILE *stream) {
    return read_from<size_t>(stream, "fread", 0, data, size, count, stream);
}
size_t fwrite(const void *data, size_t size, size_t count, FILE *stream) {
    return read_from<size_t>(stream, "fwrite", 0, data, size, count, stream);
}
mntent *getmntent_r(FILE *stream, mntent *entry, char *text, int size) noexcept {
    return read_from<mntent *>(stream, "getmntent_r", nullptr, stream, entry, text, size);
}
int fscanf(FILE *stream, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = read_from<int>(stream, "__isoc99_vfscanf", EOF, stream, format, &arguments[0]);
    va_end(arguments);
    return result;
}

// What the device manager's library does by itself are no steps but where a row asks for them.
udev *udev_new() { return asked<udev *>("udev_new", nullptr); }
udev_enumerate *udev_enumerate_new(udev *context) {
    return asked<udev_enumerate *>("udev_enumerate_new", nullptr, context);
}
int udev_enumerate_add_match_subsystem(udev_enumerate *list, const char *subsystem) {
    return asked("udev_enumerate_add_match_subsystem", -ENOMEM, list, subsystem);
}
int udev_enumerate_scan_devices(udev_enumerate *list) { return asked("udev_enumerate_scan_devices", -EIO, list); }
udev_device *udev_device_new_from_syspath(udev *context, const char *path) {
    return asked<udev_device *>("udev_device_new_from_syspath", nullptr, context, path);
}
udev_device *udev_device_new_from_devnum(udev *context, char type, dev_t number) {
    return asked<udev_device *>("udev_device_new_from_devnum", nullptr, context, type, number);
}
int udev_device_get_is_initialized(udev_device *device) {
    return asked("udev_device_get_is_initialized", -ENOMEM, device);
}
udev_list_entry *udev_device_get_properties_list_entry(udev_device *device) {
    return asked<udev_list_entry *>("udev_device_get_properties_list_entry", nullptr, device);
}
udev_list_entry *udev_device_get_devlinks_list_entry(udev_device *device) {
    const Uncounted pause(!answers().sweep_udev);
    return next<udev_list_entry *(udev_device *)>("udev_device_get_devlinks_list_entry")(device);
}
const char *udev_device_get_property_value(udev_device *device, const char *key) {
    const Uncounted pause(!answers().sweep_udev);
    return next<const char *(udev_device *, const char *)>("udev_device_get_property_value")(device, key);
}

} // extern "C"
