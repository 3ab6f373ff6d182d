#include "answers.h"
#include "sweep.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
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

int real_fstat(int fd, struct stat *status) {
    static auto *call = next<int(int, struct stat *)>("fstat");
    return call(fd, status);
}

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

// Asks a hook, and lets the calls that the hook itself makes pass it by.
template <class Hook, class... Arguments> auto ask(const Hook &hook, Arguments... arguments) {
    static thread_local bool inside = false;
    decltype(hook(arguments...)) answer;
    if (!hook || inside) return answer;
    inside = true;
    answer = hook(arguments...);
    inside = false;
    return answer;
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

void Answers::add_device(const std::string &path, mode_t type, dev_t number, std::shared_ptr<FakeDisk> disk) {
    struct stat status = {};
    static auto *call = next<int(const char *, struct stat *)>("stat");
    if (call(path.c_str(), &status) != 0) return;
    const std::string name = path.substr(path.rfind('/') + 1);
    state().devices[{status.st_dev, status.st_ino}] = {name, type, number, std::move(disk)};
}

Answers &answers() { return state().answers; }

void reset_answers() { state() = State(); }

} // namespace torvane::world

// ---- The answering functions ---------------------------------------------------------------------------

using torvane::world::answers;
using torvane::world::ask;
using torvane::world::complete;
using torvane::world::fails_now;
using torvane::world::next;
using torvane::world::Step;

extern "C" {

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().ioctl, fd, request, argument)) return *answer;
    struct stat status = {};
    const auto *device = torvane::world::real_fstat(fd, &status) == 0 ? torvane::world::device_of(status) : nullptr;
    if (device != nullptr && device->disk) {
        const torvane::world::Uncounted pause;
        answers().log.push_back(device->name + ' ' + torvane::world::describe(request, argument));
        return torvane::world::answer_request(*device->disk, request, argument);
    }
    static auto *call = next<int(int, unsigned long, ...)>("ioctl");
    return call(fd, request, argument);
}

int fstat(int fd, struct stat *status) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().fstat, fd, status)) return *answer;
    const int result = torvane::world::real_fstat(fd, status);
    if (result == 0) complete(status);
    return result;
}

int lstat(const char *path, struct stat *status) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().lstat, path, status)) return *answer;
    static auto *call = next<int(const char *, struct stat *)>("lstat");
    const int result = call(path, status);
    if (result == 0) complete(status);
    return result;
}

int stat(const char *path, struct stat *status) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    static auto *call = next<int(const char *, struct stat *)>("stat");
    const int result = call(path, status);
    if (result == 0) complete(status);
    return result;
}

int fstatat(int directory, const char *path, struct stat *status, int flags) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    static auto *call = next<int(int, const char *, struct stat *, int)>("fstatat");
    const int result = call(directory, path, status, flags);
    if (result == 0) complete(status);
    return result;
}

int mknod(const char *path, mode_t mode, dev_t device) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().mknod, path, mode, device)) return *answer;
    static auto *call = next<int(const char *, mode_t, dev_t)>("mknod");
    return call(path, mode, device);
}

int system(const char *command) {
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().system, command)) return *answer;
    static auto *call = next<int(const char *)>("system");
    return call(command);
}

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().open, path, flags)) return *answer;
    static auto *call = next<int(const char *, int, ...)>("open");
    return call(path, flags, mode);
}

FILE *fopen(const char *path, const char *mode) {
    if (fails_now(Step::kSystemCall)) return nullptr;
    if (const auto answer = ask(answers().fopen, path, mode)) return *answer;
    static auto *call = next<FILE *(const char *, const char *)>("fopen");
    return call(path, mode);
}

pid_t fork() noexcept {
    if (const auto answer = ask(answers().fork)) return *answer;
    static auto *call = next<pid_t()>("fork");
    return call();
}

int inotify_init() noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().inotify_init)) return *answer;
    static auto *call = next<int()>("inotify_init");
    return call();
}

int inotify_add_watch(int fd, const char *path, uint32_t mask) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().inotify_add_watch, fd, path, mask)) return *answer;
    static auto *call = next<int(int, const char *, uint32_t)>("inotify_add_watch");
    return call(fd, path, mask);
}

int select(int count, fd_set *read, fd_set *write, fd_set *error, timeval *timeout) {
    if (fails_now(Step::kSystemCall)) return -1;
    if (const auto answer = ask(answers().select, count, read, timeout)) return *answer;
    static auto *call = next<int(int, fd_set *, fd_set *, fd_set *, timeval *)>("select");
    return call(count, read, write, error, timeout);
}

// The rest only take part in failure sweeps.

FILE *fdopen(int fd, const char *mode) noexcept {
    if (fails_now(Step::kSystemCall)) return nullptr;
    static auto *call = next<FILE *(int, const char *)>("fdopen");
    return call(fd, mode);
}

DIR *opendir(const char *path) {
    if (fails_now(Step::kSystemCall)) return nullptr;
    static auto *call = next<DIR *(const char *)>("opendir");
    return call(path);
}

ssize_t readlink(const char *path, char *buffer, size_t size) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    static auto *call = next<ssize_t(const char *, char *, size_t)>("readlink");
    return call(path, buffer, size);
}

int access(const char *path, int mode) noexcept {
    if (fails_now(Step::kSystemCall)) return -1;
    static auto *call = next<int(const char *, int)>("access");
    return call(path, mode);
}

char *mkdtemp(char *pattern) noexcept {
    if (fails_now(Step::kSystemCall)) return nullptr;
    static auto *call = next<char *(char *)>("mkdtemp");
    return call(pattern);
}

} // extern "C"
