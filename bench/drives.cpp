// How long get_drives() takes for the machine's disks, held against the least that any program could do for
// them: the floor.
//   drives ROUNDS       milliseconds of the fastest round, each way in turn: disturbances only ever add
//   drives --once WAY   one call, to count what it does
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <torvane.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr size_t kReplySize = 255;

bool inquire(int fd, unsigned char page) {
    std::array<unsigned char, kReplySize> reply{};
    std::array<unsigned char, 6> command = {0x12, 1, page, 0, kReplySize, 0};
    std::array<unsigned char, 32> sense{};
    sg_io_hdr_t request{};
    request.interface_id = 'S';
    request.dxfer_direction = SG_DXFER_FROM_DEV;
    request.cmd_len = command.size();
    request.cmdp = command.data();
    request.dxfer_len = reply.size();
    request.dxferp = reply.data();
    request.mx_sb_len = sense.size();
    request.sbp = sense.data();
    request.timeout = 60000;
    return ioctl(fd, SG_IO, &request) == 0;
}

bool read_attribute(const std::string &path) {
    std::array<char, 256> text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool done = read(fd, text.data(), text.size()) > 0;
    close(fd);
    return done;
}

// Serial number, rotation rate, sizes, start, vendor and model of one disk.
bool read_at_least(const std::string &name) {
    const int fd = open(("/dev/" + name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    int block_size = 0;
    uint64_t bytes = 0;
    hd_geometry geometry{};
    bool done = inquire(fd, 0x00) && inquire(fd, 0x80) && inquire(fd, 0xB1);
    done = done && ioctl(fd, BLKSSZGET, &block_size) == 0 && ioctl(fd, BLKGETSIZE64, &bytes) == 0 &&
           ioctl(fd, HDIO_GETGEO, &geometry) == 0;
    const std::string device = "/sys/block/" + name + "/device/";
    done = done && read_attribute(device + "vendor") && read_attribute(device + "model");
    close(fd);
    return done;
}

std::vector<std::string> names_of_disks() {
    DriveList list{};
    std::vector<std::string> names;
    if (get_drives(&list, DRIVE_OPTION_SYSTEM, nullptr, 0) != 0) return names;
    for (uint32_t i = 0; i < list.count; ++i) {
        names.emplace_back(list.drives[i]->name);
        names.back().erase(0, std::string_view("/dev/").size());
    }
    release_drives(&list);
    return names;
}

bool read_floor(const std::vector<std::string> &names) { return std::ranges::all_of(names, read_at_least); }

template <DriveOptions Options> bool read_drives(const std::vector<std::string> &names) {
    DriveList list{};
    const bool done = get_drives(&list, DRIVE_OPTION_SYSTEM | Options, nullptr, 0) == 0 && list.count == names.size();
    release_drives(&list);
    return done;
}

struct Way {
    const char *name;
    bool (*read)(const std::vector<std::string> &names);
};
constexpr Way kWays[] = {
    {"floor", read_floor},
    {"get_drives(1+4)", read_drives<DRIVE_OPTION_IDENTITY>},
    {"get_drives(1+2)", read_drives<DRIVE_OPTION_GEOMETRY>},
    {"get_drives(1+2+4)", read_drives<DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY>},
};

double milliseconds(const Way &way, const std::vector<std::string> &names) {
    const auto begin = std::chrono::steady_clock::now();
    if (!way.read(names)) {
        std::fprintf(stderr, "%s failed\n", way.name);
        std::exit(1);
    }
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

void measure(long rounds, const std::vector<std::string> &names) {
    std::array<double, std::size(kWays)> fastest;
    fastest.fill(HUGE_VAL);
    for (const Way &way : kWays) milliseconds(way, names); // not counted: it fills the caches
    for (; rounds > 0; --rounds) {
        for (size_t i = 0; i < fastest.size(); ++i) fastest[i] = std::min(fastest[i], milliseconds(kWays[i], names));
    }
    for (size_t i = 0; i < fastest.size(); ++i) std::printf("%s\t%.3f\n", kWays[i].name, fastest[i]);
}

// As a program should that has a descriptor for every disk: the library keeps within what it is given.
void raise_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main(int argc, char **argv) {
    const bool once = argc == 3 && std::string_view(argv[1]) == "--once";
    const long rounds = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 0;
    if (!once && rounds < 1) {
        std::fputs("usage: drives ROUNDS | drives --once WAY\n", stderr);
        return 2;
    }
    raise_limit();
    const std::vector<std::string> names = names_of_disks();
    if (!once) {
        measure(rounds, names);
        return 0;
    }
    for (const Way &way : kWays) {
        if (way.name == std::string_view(argv[2])) return way.read(names) ? 0 : 1;
    }
    return 0; // any other name: nothing more than finding the names
}
