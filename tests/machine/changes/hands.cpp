#include "changes/hands.h"

#include "readers.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace changes {
namespace {

namespace fs = std::filesystem;
// Ten times what it takes on idle processors: shared ones are slow.
constexpr std::chrono::seconds kPatience{120};
constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20U;
constexpr const char *kDebugHosts = "/sys/bus/pseudo/drivers/scsi_debug/add_host";

void write_to(const fs::path &path, const std::string &text) {
    std::ofstream file(path);
    if (!(file << text << std::flush)) throw std::runtime_error("cannot write to " + path.string());
}

// One line of the emulator's monitor; what it answers.
std::string monitor(const std::string &line) {
    static const int port = open("/dev/virtio-ports/org.torvane.monitor", O_RDWR | O_CLOEXEC);
    const auto ask = [](const nlohmann::json &question) {
        const std::string text = question.dump() + "\n";
        if (write(port, text.data(), text.size()) < 0) throw std::runtime_error("no monitor");
        std::string reply;
        for (char c = 0; read(port, &c, 1) == 1;) {
            if (c != '\n') reply += c;
            if (c != '\n' || (reply.find("\"return\"") == std::string::npos && !reply.starts_with("{\"error\""))) {
                if (c == '\n') reply.clear(); // an event
                continue;
            }
            return nlohmann::json::parse(reply).value("return", nlohmann::json()).dump();
        }
        throw std::runtime_error("the monitor does not answer");
    };
    static const std::string ready = ask({{"execute", "qmp_capabilities"}});
    return ask({{"execute", "human-monitor-command"}, {"arguments", {{"command-line", line}}}});
}

// The disk of this size; "" when there is none.
std::string name_of_size(std::uint64_t bytes) {
    std::error_code gone;
    for (const fs::directory_entry &entry : fs::directory_iterator("/sys/block", gone)) {
        const std::string name = entry.path().filename();
        const bool is_it =
            name.starts_with("sd") && truth::content_of(entry.path() / "size") == std::to_string(bytes / 512);
        if (is_it && fs::exists("/dev/" + name)) return name;
    }
    return {};
}

bool is_on_usb(const std::string &serial) {
    std::error_code gone;
    for (const fs::directory_entry &entry : fs::directory_iterator("/sys/bus/usb/devices", gone)) {
        if (truth::content_of(entry.path() / "serial") == serial) return true;
    }
    return false;
}

// Sticks that callers bind and unbind have a disk or none; that they are plugged in is what counts.
bool is_there(const Disk &disk) { return disk.is_steady ? !name_of_size(disk.bytes).empty() : is_on_usb(disk.id); }

bool is_all_gone(const Disk &disk) { return name_of_size(disk.bytes).empty() && !is_on_usb(disk.id); }

bool is_in(const Disk &disk) { return !disk.stays.empty() && disk.stays.back().pulled_from == kNever; }

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string hba() {
    const std::string link = fs::read_symlink("/sys/block/" + name_of_size(22 * kMebibyte) + "/device");
    return "/sys/class/scsi_host/host" + link.substr(link.rfind('/') + 1, link.find(':') - link.rfind('/') - 1);
}

void scan(const std::string &target) {
    static const std::string host = hba();
    write_to(host + "/scan", "0 " + target + " 0");
}

} // namespace

Hands::Hands(unsigned seed) : random_(seed) {
    for (const auto &[id, mebibytes] : std::initializer_list<std::pair<const char *, unsigned>>{{"STAYUSB", 21},
                                                                                                {"STAYSCSI", 22},
                                                                                                {"HALF1", 48},
                                                                                                {"HALF2", 49},
                                                                                                {"AGAIN", 24},
                                                                                                {"USB1", 25},
                                                                                                {"USB2", 26},
                                                                                                {"MOUNT1", 27},
                                                                                                {"MOUNT2", 28},
                                                                                                {"SCSI1", 29},
                                                                                                {"DEBUG", 30}}) {
        Disk disk{id, id, mebibytes * kMebibyte};
        if (disk.id == "DEBUG") disk.serial.clear(); // the driver counts on
        disk.partitions = disk.id == "AGAIN" ? 1 : 0;
        disk.is_steady = !disk.id.starts_with("MOUNT");
        const std::string name = name_of_size(disk.bytes);
        disk.is_in_drawer = name.empty();
        if (!name.empty()) disk.stays.push_back({name});
        if (disk.is_in_drawer || disk.id == "AGAIN" || disk.id == "HALF2") moved_.insert(disks_.size());
        disks_.push_back(std::move(disk));
    }
    disks_.push_back({"md0", {}, 0, 0, true, false, {{"md0"}}});
    scan("0");
}

void Hands::plug(const Disk &disk) {
    if (disk.id == "DEBUG") {
        write_to(kDebugHosts, "1");
    } else if (disk.id == "AGAIN") {
        scan("3");
    } else if (disk.id == "HALF2") {
        scan("2");
    } else {
        const std::string id = lower(disk.id);
        const std::string what = disk.id == "SCSI1" ? "scsi-hd,bus=hba.0,scsi-id=4,vendor=ACME,product=COMES"
                                                    : "usb-storage,bus=xhci.0,removable=on";
        const std::string line = "device_add " + what + ",id=" + id + ",drive=" + id + ",serial=" + disk.id;
        // Refused while the emulator still takes the device away.
        if (!truth::holds_soon([&] { return monitor(line) == "\"\""; }, kPatience))
            throw std::runtime_error(monitor(line));
    }
}

void Hands::pull(const Disk &disk) {
    const std::string name = disk.stays.back().name;
    if (disk.id == "DEBUG") {
        write_to(kDebugHosts, "-1");
    } else if (disk.id == "AGAIN" || disk.id == "HALF2") {
        // A member of an array goes in good order, or as a disk that dies.
        if (disk.id == "HALF2" && random_() % 2 == 0) {
            truth::output_of("mdadm /dev/md0 --fail /dev/" + name + " --remove /dev/" + name);
        }
        write_to("/sys/block/" + name + "/device/delete", "1");
    } else {
        monitor("device_del " + lower(disk.id));
    }
}

void Hands::begin_change(std::size_t index) {
    Disk &disk = disks_[index];
    if (is_in(disk)) {
        disk.stays.back().pulled_from = now();
        pull(disk);
        ++counts_["pulled " + disk.id];
    } else {
        disk.stays.push_back({{}, now(), kNever});
        plug(disk);
        ++counts_["plugged " + disk.id];
    }
}

void Hands::finish_change(std::size_t index) {
    Disk &disk = disks_[index];
    Stay &stay = disk.stays.back();
    const bool goes = stay.pulled_from != kNever;
    if (!truth::holds_soon([&] { return goes ? is_all_gone(disk) : is_there(disk); }, kPatience)) {
        throw std::runtime_error(disk.id + (goes ? " does not go" : " does not come"));
    }
    if (goes) {
        stay.pulled_by = now();
        if (disk.id == "HALF2") truth::output_of("mdadm /dev/md0 --remove detached");
        return;
    }
    stay.name = name_of_size(disk.bytes);
    stay.plugged_by = now();
    if (disk.id == "HALF2") truth::output_of("mdadm /dev/md0 --add /dev/" + stay.name);
}

// Up to three disks at once, in any order.
void Hands::work_until(Time end) {
    while (now() < end) {
        std::vector<std::size_t> chosen;
        std::sample(moved_.begin(), moved_.end(), std::back_inserter(chosen), 1 + random_() % 3, random_);
        std::shuffle(chosen.begin(), chosen.end(), random_);
        for (const std::size_t index : chosen) begin_change(index);
        for (const std::size_t index : chosen) finish_change(index);
        usleep(static_cast<useconds_t>(random_() % 1'000'000));
    }
    for (const std::size_t index : moved_) {
        if (is_in(disks_[index]) == disks_[index].is_in_drawer) {
            begin_change(index);
            finish_change(index);
        }
    }
}

} // namespace changes
