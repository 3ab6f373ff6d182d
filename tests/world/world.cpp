#include "world.h"

#include "../inventory/tree.h"
#include "answers.h"

#include "torvane.h"

#include <dirent.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace torvane::world {

namespace {

namespace fs = std::filesystem;
using namespace inventory::tests;

const std::string kPrograms = "/run/programs";

void move_mount(const std::string &from, const std::string &to) {
    if (mount(from.c_str(), to.c_str(), nullptr, MS_MOVE, nullptr) != 0) give_up("moving to " + to);
}

std::string number(unsigned major, unsigned minor) { return std::to_string(major) + ":" + std::to_string(minor); }

std::string partition_name(const std::string &disk, size_t index) {
    const bool digit = std::isdigit(static_cast<unsigned char>(disk.back())) != 0;
    return disk + (digit ? "p" : "") + std::to_string(index);
}

} // namespace

World::World() {
    enter_namespace();
    reset_answers();
    // The host's trees are kept aside below the new /run until their places in the new trees exist.
    const std::string aside = "/run/host";
    const std::string build = TORVANE_BUILD_DIRECTORY;
    const bool build_in_tmp = build.starts_with("/tmp/");
    mount_at("/run");
    mounts_.emplace_back("/run");
    for (const char *name : {"/proc", "/dev", "/build"}) fs::create_directories(aside + name);
    mount_at(aside + "/proc", "/proc");
    mount_at(aside + "/dev", "/dev");
    if (build_in_tmp) mount_at(aside + "/build", build.c_str());
    for (const char *path : {"/sys", "/proc", "/dev", "/tmp"}) {
        mount_at(path);
        mounts_.emplace_back(path);
    }
    fs::create_directories("/proc/host");
    move_mount(aside + "/proc", "/proc/host");
    fs::create_symlink("host/self", "/proc/self");
    fs::create_symlink("host/self", "/proc/" + std::to_string(getpid()));
    fs::create_symlink("self/mounts", "/proc/mounts");
    for (const std::string name : {"null", "zero", "full", "random", "urandom", "tty"}) {
        write_file("/dev/" + name, "");
        mount_at("/dev/" + name, (aside + "/dev/" + name).c_str());
    }
    fs::create_symlink("/proc/self/fd", "/dev/fd");
    if (umount2((aside + "/dev").c_str(), MNT_DETACH) != 0) give_up("unmounting the host's /dev");
    if (build_in_tmp) {
        fs::create_directories(build);
        move_mount(aside + "/build", build);
    }
    fs::remove_all(aside);

    fs::create_directories(kPrograms);
    path_ = std::getenv("PATH") == nullptr ? "/usr/bin:/bin" : std::getenv("PATH");
    setenv("PATH", (kPrograms + ":" + path_).c_str(), 1);
    partition_rows("");
}

World::~World() {
    setenv("PATH", path_.c_str(), 1);
    reset_answers();
    unmount_all();
}

void World::unmount_all() noexcept {
    for (; !mounts_.empty(); mounts_.pop_back()) umount2(mounts_.back().c_str(), MNT_DETACH);
}

void World::file(const std::string &path, std::string_view text) const { write_file(path, text); }

void World::directory(const std::string &path) const { fs::create_directories(path); }

void World::link(const std::string &path, const std::string &target) const { make_link(path, target); }

void World::remove(const std::string &path) const { fs::remove_all(path); }

std::shared_ptr<FakeDisk> World::device(const std::string &path, unsigned major, unsigned minor, bool character,
                                        std::shared_ptr<FakeDisk> disk) const {
    if (!fs::exists(path)) file(path, "");
    if (!disk) disk = std::make_shared<FakeDisk>();
    answers().add_device(path, character ? S_IFCHR : S_IFBLK, makedev(major, minor), disk);
    return disk;
}

void World::program(const std::string &name, std::string_view script) const {
    const std::string path = kPrograms + "/" + name;
    write_file(path, "#!/bin/sh\n" + std::string(script) + "\n");
    fs::permissions(path, fs::perms::owner_all);
}

void World::udev_properties(unsigned major, unsigned minor, std::string_view lines) const {
    file("/run/udev/data/b" + number(major, minor), lines);
}

namespace {

struct BlockEntry {
    std::string name;
    std::string folder; // below /sys/devices
    const char *type;   // DEVTYPE of its uevent
    unsigned major;
    unsigned minor;
    uint64_t size; // bytes
    std::string uuid;
};

void lay_out_block(const World &world, const BlockEntry &entry) {
    const std::string folder = "/sys/devices/" + entry.folder;
    const std::string id = number(entry.major, entry.minor);
    world.file(folder + "/dev", id + "\n");
    world.file(folder + "/size", std::to_string(entry.size / 512) + "\n");
    world.file(folder + "/uevent", "MAJOR=" + std::to_string(entry.major) + "\nMINOR=" + std::to_string(entry.minor) +
                                       "\nDEVNAME=" + entry.name + "\nDEVTYPE=" + entry.type + "\n");
    world.link(folder + "/subsystem", "/sys/class/block");
    world.link("/sys/class/block/" + entry.name, "../../devices/" + entry.folder);
    world.link("/sys/dev/block/" + id, "../../devices/" + entry.folder);
    if (!entry.uuid.empty()) world.udev_properties(entry.major, entry.minor, "E:ID_FS_UUID=" + entry.uuid + "\n");
    char row[200];
    std::snprintf(row, sizeof row, "%4u  %7u %10llu %s\n", entry.major, entry.minor,
                  static_cast<unsigned long long>(entry.size / 1024), entry.name.c_str());
    write_file("/proc/partitions", row, std::ios::app);
}

void lay_out_generic(const World &world, const std::string &unit, int generic, const std::shared_ptr<FakeDisk> &disk) {
    const std::string name = "sg" + std::to_string(generic);
    const std::string folder = unit + "/scsi_generic/" + name;
    world.file("/sys/devices/" + folder + "/dev", number(21, static_cast<unsigned>(generic)) + "\n");
    world.link("/sys/devices/" + folder + "/device", "../../../" + unit.substr(unit.rfind('/') + 1));
    world.link("/sys/devices/" + unit + "/generic", "scsi_generic/" + name);
    world.link("/sys/class/scsi_generic/" + name, "../../devices/" + folder);
    world.device("/dev/" + name, 21, static_cast<unsigned>(generic), true, disk);
}

} // namespace

std::shared_ptr<FakeDisk> World::disk(const Disk &disk) const {
    const std::string unit = disk.parent + "/" + disk.address;
    const std::string block = unit + "/block/" + disk.name;
    file("/sys/devices/" + unit + "/vendor", disk.vendor + "\n");
    file("/sys/devices/" + unit + "/model", disk.model + "\n");
    file("/sys/devices/" + unit + "/type", "0\n");
    link("/sys/bus/scsi/devices/" + disk.address, "../../../devices/" + unit);
    link("/sys/block/" + disk.name, "../devices/" + block);
    lay_out_block(*this, {disk.name, block, "disk", disk.major, disk.minor, disk.size, disk.uuid});
    link("/sys/devices/" + block + "/device", "../../../" + disk.address);
    auto fake = device("/dev/" + disk.name, disk.major, disk.minor);
    fake->size = disk.size;
    fake->idlun = 0;
    fake->set_inquiry(disk.vendor, disk.model);
    fake->set_serial(disk.serial);
    if (disk.generic >= 0) lay_out_generic(*this, unit, disk.generic, fake);
    for (size_t i = 0; i < disk.partitions.size(); ++i) {
        const Partition &partition = disk.partitions[i];
        const std::string name = partition_name(disk.name, i + 1);
        const unsigned minor = disk.minor + static_cast<unsigned>(i) + 1;
        lay_out_block(*this,
                      {name, block + "/" + name, "partition", disk.major, minor, partition.size, partition.uuid});
        file("/sys/devices/" + block + "/" + name + "/partition", std::to_string(i + 1) + "\n");
        file("/sys/devices/" + block + "/" + name + "/start", std::to_string(partition.start) + "\n");
        auto own = device("/dev/" + name, disk.major, minor, false, std::make_shared<FakeDisk>(*fake));
        own->size = partition.size;
        own->start = partition.start;
    }
    return fake;
}

std::vector<std::string> World::leftovers() const {
    const std::string build = TORVANE_BUILD_DIRECTORY;
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator("/tmp")) {
        if (!build.starts_with(entry.path().string() + "/")) names.push_back(entry.path().filename());
    }
    return names;
}

std::string read_file(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::set<int> open_descriptors() {
    std::set<int> numbers;
    DIR *directory = opendir("/proc/self/fd");
    if (directory == nullptr) give_up("reading /proc/self/fd");
    while (const dirent *entry = readdir(directory)) {
        if (entry->d_name[0] != '.') numbers.insert(std::atoi(entry->d_name));
    }
    numbers.erase(dirfd(directory));
    closedir(directory);
    return numbers;
}

std::string text_of(uint32_t category) {
    const char *text = get_error_str(category);
    return text == nullptr ? "(no such category)" : text;
}

} // namespace torvane::world
