#include "tree.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace inventory::tests {
namespace {

namespace fs = std::filesystem;

std::string unescaped(const std::string &text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            plain += text[i];
        } else if (text[++i] == 'x') {
            plain += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            plain += text[i] == 'n' ? '\n' : text[i];
        }
    }
    return plain;
}

std::string bytes_of(const std::string &digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

std::string page(int code, const std::string &content) {
    const std::string head{'\0', static_cast<char>(code), static_cast<char>(content.size() >> 8U),
                           static_cast<char>(content.size() & 0xFFU)};
    return head + content;
}

void put_ata_text(std::string &ata_page, std::size_t word, std::string text, std::size_t words) {
    text.resize(words * 2, ' ');
    for (std::size_t i = 0; i < text.size(); ++i) ata_page[60 + word * 2 + (i ^ 1U)] = text[i];
}

void put_pages(const std::string &folder, std::map<std::string, std::string> values) {
    if (values.contains("80")) write_file(folder + "/vpd_pg80", page(0x80, values["80"]));
    if (values.contains("naa")) {
        const std::string name = bytes_of(values["naa"]);
        write_file(folder + "/vpd_pg83", page(0x83, std::string("\1\3\0", 3) + static_cast<char>(name.size()) + name));
    }
    if (values.contains("rotation"))
        write_file(folder + "/vpd_pgb1", page(0xB1, bytes_of(values["rotation"]) + "\0\0"));
    if (!values.contains("ata")) return;
    std::string ata_page = page(0x89, std::string(568, '\0'));
    put_ata_text(ata_page, 10, values["ata-serial"], 10);
    put_ata_text(ata_page, 23, values["ata-firmware"], 4);
    put_ata_text(ata_page, 27, values["ata"], 20);
    write_file(folder + "/vpd_pg89", ata_page);
}

} // namespace

[[noreturn]] void give_up(const std::string &what) {
    throw std::runtime_error("no fixture machine here: " + what + ": " + std::strerror(errno));
}

void write_file(const std::string &path, std::string_view text, std::ios::openmode mode) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::out | mode);
    if (!(stream << text).flush()) give_up("cannot write " + path);
}

void make_link(const std::string &path, const std::string &target) {
    fs::create_directories(fs::path(path).parent_path());
    fs::remove(path);
    fs::create_symlink(target, path);
}

void mount_at(const std::string &path, const char *source) {
    const bool is_own = source == nullptr;
    const unsigned long flags = is_own ? MS_NOSUID : MS_BIND | MS_REC;
    if (mount(is_own ? "tree" : source, path.c_str(), is_own ? "tmpfs" : nullptr, flags,
              is_own ? "mode=0755" : nullptr))
        give_up("mounting over " + path);
}

void enter_namespace() {
    static bool entered = false;
    if (entered) return;
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0) give_up("unshare");
    if (user != 0) {
        write_file("/proc/self/setgroups", "deny");
        write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        write_file("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) give_up("making mounts private");
    // The device manager's library else insists on a sysfs.
    setenv("SYSTEMD_DEVICE_VERIFY_SYSFS", "0", 1);
    entered = true;
}

Tree::Tree(const std::string &description) {
    enter_namespace();
    fs::create_directories("/run");
    for (const char *path : {"/sys", "/run"}) {
        mount_at(path);
        mounts_.emplace_back(path);
    }
    // The library that reads the database and the test itself still need their own descriptors.
    fs::create_directories("/run/proc");
    mount_at("/run/proc", "/proc");
    mount_at("/proc");
    mounts_.insert(mounts_.end(), {"/run/proc", "/proc"});
    make_link("/proc/self/fd", "/run/proc/self/fd");
    write_file("/proc/partitions", "major minor  #blocks  name\n\n");
    write_file("/proc/self/mountinfo", "");
    write_file("/proc/swaps", "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n");
    fs::create_directories("/sys/class/block");
    std::istringstream lines(description);
    for (std::string line; std::getline(lines, line);) lay_out(line);
}

Tree::~Tree() {
    for (; !mounts_.empty(); mounts_.pop_back()) umount2(mounts_.back().c_str(), MNT_DETACH);
}

void Tree::lay_out(std::string line) {
    if (line.empty() || line.front() == '#') return;
    for (const auto &[name, text] : names_) {
        for (auto at = line.find("@" + name); at != std::string::npos; at = line.find("@" + name)) {
            line.replace(at, name.size() + 1, text);
        }
    }
    std::istringstream words(line);
    std::string first, second, third, fourth;
    words >> first >> second;
    const auto rest = [&words] {
        std::string text;
        std::getline(words >> std::ws, text);
        return unescaped(text);
    };
    if (first == "set") {
        names_[second] = rest();
    } else if (first == "block") {
        words >> third >> fourth;
        block(second, third, fourth);
    } else if (first == "pages") {
        std::map<std::string, std::string> values;
        while (words >> third) {
            std::string value = third.substr(third.find('=') + 1);
            for (char &c : value) c = c == '_' ? ' ' : c;
            values[third.substr(0, third.find('='))] = value;
        }
        put_pages(second, values);
    } else if (second == "=") {
        write_file(first, rest() + "\n");
    } else if (second == "+") {
        write_file(first, rest() + "\n", std::ios::app);
    } else if (second == "->") {
        make_link(first, rest());
    } else {
        throw std::runtime_error("not understood: " + line);
    }
}

void Tree::block(const std::string &path, const std::string &numbers, const std::string &sectors) const {
    const std::string name = fs::path(path).filename();
    std::string node = name;
    for (char &c : node) c = c == '!' ? '/' : c;
    const std::size_t colon = numbers.find(':');
    const std::string major = numbers.substr(0, colon);
    const std::string minor = numbers.substr(colon + 1);
    const bool is_part = fs::exists(fs::path(path).parent_path() / "size");
    write_file(path + "/dev", numbers + "\n");
    write_file(path + "/size", sectors + "\n");
    write_file(path + "/ro", "0\n");
    write_file(path + "/uevent", "MAJOR=" + major + "\nMINOR=" + minor + "\nDEVNAME=" + node +
                                     "\nDEVTYPE=" + (is_part ? "partition" : "disk") + "\n");
    make_link(path + "/subsystem", "/sys/class/block");
    make_link("/sys/class/block/" + name, "../../" + path.substr(5));
    make_link("/sys/dev/block/" + numbers, "../../" + path.substr(5));
    if (sectors != "0") {
        const std::string row = major + " " + minor + " " + std::to_string(std::stoull(sectors) / 2) + " " + node;
        write_file("/proc/partitions", row + "\n", std::ios::app);
    }
    if (is_part) return;
    write_file(path + "/queue/logical_block_size", "512\n");
    write_file(path + "/queue/physical_block_size", "512\n");
    write_file(path + "/queue/rotational", "1\n");
    write_file(path + "/removable", "0\n");
}

// By the shell itself, as starting one more program for every answer takes most of a sweep's time.
std::string says(std::string text) {
    for (size_t at = text.find('\''); at != std::string::npos; at = text.find('\'', at + 4))
        text.replace(at, 1, "'\\''");
    return "printf %s '" + text + "'";
}

std::string content_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) give_up("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace inventory::tests
