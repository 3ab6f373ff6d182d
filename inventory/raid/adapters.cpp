#include "inventory/raid/adapters.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace inventory::raid {
namespace {

namespace fs = std::filesystem;

// Names as /sys/bus/pci/drivers has them. cciss and mpt2sas are of older kernels. No tool of those after mvumi is read
// here; their drives are no less hidden.
constexpr std::array<const char *, 19> kDrivers{
    "megaraid_sas", "mpi3mr",  "mpt3sas", "mpt2sas", "aacraid", "smartpqi", "hpsa", "cciss", "hpvsa",  "mvumi",
    "megaraid",     "3w-9xxx", "3w-sas",  "3w-xxxx", "arcmsr",  "hptiop",   "ips",  "stex",  "pmcraid"};

std::vector<std::string> names_in(const fs::path &folder) {
    std::vector<std::string> names;
    std::error_code fault;
    for (fs::directory_iterator entry(folder, fault), end; !fault && entry != end; entry.increment(fault)) {
        names.push_back(entry->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// An attribute; they are a page at most.
std::string attribute(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(4096, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

bool has_raid_volume(const std::string &pci) {
    constexpr const char *kClass = "/sys/class/raid_devices";
    const std::vector<std::string> volumes = names_in(kClass);
    return std::any_of(volumes.begin(), volumes.end(), [&](const std::string &name) {
        std::error_code fault;
        const fs::path target = fs::read_symlink(fs::path(kClass) / name, fault);
        return !fault && target.string().find("/" + pci + "/") != std::string::npos;
    });
}

// As the driver tells it; BAD0 stands for a card without one.
std::string serial_of(const std::vector<std::string> &hosts) {
    for (const std::string &host : hosts) {
        std::string serial = told(attribute("/sys/class/scsi_host/" + host + "/serial_number"));
        if (!serial.empty() && !same_word(serial, "BAD0")) return serial;
    }
    return {};
}

Adapter adapter_at(const std::string &pci, const std::string &driver) {
    Adapter adapter;
    adapter.pci = pci;
    adapter.driver = driver;
    for (const std::string &name : names_in("/sys/bus/pci/devices/" + pci)) {
        if (name.starts_with("host") && whole_number(name.substr(4))) adapter.hosts.push_back(name);
    }
    adapter.serial = serial_of(adapter.hosts);
    adapter.hides_drives = !driver.starts_with("mpt") || has_raid_volume(pci);
    return adapter;
}

// VPD page 80h (SPC-4, 7.8.13): four bytes, then the serial number.
std::string serial_in_page(const std::string &page) { return page.size() <= 4 ? std::string() : told(page.substr(4)); }

} // namespace

std::vector<Adapter> bound_adapters() {
    std::vector<Adapter> adapters;
    for (const char *driver : kDrivers) {
        for (const std::string &name : names_in(fs::path("/sys/bus/pci/drivers") / driver)) {
            if (!pci_address(name).empty()) adapters.push_back(adapter_at(name, driver));
        }
    }
    std::sort(adapters.begin(), adapters.end(),
              [](const Adapter &left, const Adapter &right) { return left.pci < right.pci; });
    return adapters;
}

std::vector<GenericNode> generic_nodes_without_disk() {
    const fs::path all = "/sys/class/scsi_generic";
    std::vector<GenericNode> nodes;
    for (const std::string &name : names_in(all)) {
        const fs::path device = all / name / "device";
        std::error_code fault;
        if (fs::exists(device / "block", fault)) continue;
        const std::string type = told(attribute(device / "type"));
        const fs::path address = fs::canonical(device, fault).filename();
        const std::string serial = serial_in_page(attribute(device / "vpd_pg80"));
        if (type == "0" && !serial.empty()) nodes.push_back({"/dev/" + name, address.string(), serial});
    }
    return nodes;
}

} // namespace inventory::raid
