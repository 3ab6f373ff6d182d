#include "inventory/raid/adapters.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <array>

namespace inventory::raid {
namespace {

// Names as /sys/bus/pci/drivers has them. cciss and mpt2sas are of older kernels. No tool of those after mvumi is read
// here; their drives are no less hidden.
constexpr std::array<const char *, 19> kDrivers{
    "megaraid_sas", "mpi3mr",  "mpt3sas", "mpt2sas", "aacraid", "smartpqi", "hpsa", "cciss", "hpvsa",  "mvumi",
    "megaraid",     "3w-9xxx", "3w-sas",  "3w-xxxx", "arcmsr",  "hptiop",   "ips",  "stex",  "pmcraid"};

bool has_raid_volume(const std::string &pci, ReadFailures &failures) {
    const Folder volumes("/sys/class/raid_devices", &failures);
    const std::vector<std::string> names = volumes.names();
    return std::any_of(names.begin(), names.end(), [&](const std::string &name) {
        return volumes.link(name.c_str()).find("/" + pci + "/") != std::string::npos;
    });
}

// As the driver tells it; BAD0 stands for a card without one.
std::string serial_of(const std::vector<std::string> &hosts, ReadFailures &failures) {
    for (const std::string &host : hosts) {
        std::string serial = told(Folder("/sys/class/scsi_host/" + host, &failures).text("serial_number"));
        if (!serial.empty() && !same_word(serial, "BAD0")) return serial;
    }
    return {};
}

Adapter adapter_at(const std::string &pci, const std::string &driver, ReadFailures &failures) {
    Adapter adapter;
    adapter.pci = pci;
    adapter.driver = driver;
    for (const std::string &name : Folder("/sys/bus/pci/devices/" + pci, &failures).names()) {
        if (name.starts_with("host") && whole_number(name.substr(4))) adapter.hosts.push_back(name);
    }
    adapter.serial = serial_of(adapter.hosts, failures);
    adapter.hides_drives = !driver.starts_with("mpt") || has_raid_volume(pci, failures);
    return adapter;
}

// VPD page 80h (SPC-4, 7.8.13): four bytes, then the serial number.
std::string serial_in_page(const std::string &page) { return page.size() <= 4 ? std::string() : told(page.substr(4)); }

} // namespace

std::vector<Adapter> bound_adapters(ReadFailures &failures) {
    std::vector<Adapter> adapters;
    const Folder drivers("/sys/bus/pci/drivers", &failures);
    for (const char *driver : kDrivers) {
        for (const std::string &name : drivers.names(driver)) {
            if (!pci_address(name).empty()) adapters.push_back(adapter_at(name, driver, failures));
        }
    }
    std::sort(adapters.begin(), adapters.end(),
              [](const Adapter &left, const Adapter &right) { return left.pci < right.pci; });
    return adapters;
}

std::vector<GenericNode> generic_nodes_without_disk(ReadFailures &failures) {
    const Folder all("/sys/class/scsi_generic", &failures);
    std::vector<GenericNode> nodes;
    for (const std::string &name : all.names()) {
        const Folder device(all, name + "/device");
        if (device.has("block")) continue;
        const std::string type = told(device.text("type"));
        const std::string serial = serial_in_page(device.bytes("vpd_pg80").value_or(""));
        const std::string address = last_part(all.link((name + "/device").c_str()));
        if (type == "0" && !serial.empty()) nodes.push_back({"/dev/" + name, address, serial});
    }
    return nodes;
}

} // namespace inventory::raid
