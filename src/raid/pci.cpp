#include "raid/pci.h"

#include "foundation/directory.h"
#include "foundation/errors.h"
#include "raid/tool.h"

#include <climits>
#include <cstring>
#include <span>

using namespace torvane;

namespace {

constexpr const char *kPciDevices = "/sys/bus/pci/devices";
constexpr const char *kScsiDisks = "/sys/class/scsi_disk/";

constexpr Tool kListPci = {"lspci -v", "failed to call command", "failed to read lspci information from", true};

struct RaidDriver {
    const char *name;
    uint32_t type;
};

constexpr RaidDriver kRaidDrivers[] = {{"aacraid", RAID_TYPE_ADAPTEC}, {"megaraid_sas", RAID_TYPE_LSI}};
constexpr size_t kRaidDriverCount = std::size(kRaidDrivers);

struct PciRecords {
    PciInfo **list;
    uint32_t *count;
};

void discard(PciInfo **list, uint32_t *count) noexcept {
    release_pci_info(*list, static_cast<int>(*count));
    *list = nullptr;
    *count = 0;
}

PciInfo *add_record(PciInfo **list, uint32_t *count) noexcept {
    return grow(*list, *count) ? *list + *count - 1 : nullptr;
}

int add_pci_info(const char *line, const char *slot, const RaidDriver &driver, uint32_t &counter,
                 const PciRecords &records) noexcept {
    if (!contains(line, driver.name)) return 0;
    CString copy(duplicate_str(slot));
    if (!copy) return -1;
    PciInfo *record = add_record(records.list, records.count);
    if (record == nullptr) return -1;
    record->type = driver.type;
    record->number = counter++;
    record->slot = copy.release();
    return 0;
}

struct LspciState {
    PciRecords records;
    CString slot;                             // set inside a device's block
    uint32_t counters[kRaidDriverCount] = {}; // adapters of each driver
};

// A block begins with the first line that holds a word: the address. -1 without memory for it.
int open_block(LspciState &state, const char *line) noexcept {
    constexpr const char *kBlanks = " \t\n\v\f\r";
    const char *word = line + std::strspn(line, kBlanks);
    if (*word == '\0') return 0;
    state.slot.reset(duplicate_nstr(word, std::strcspn(word, kBlanks)));
    return state.slot ? 0 : -1;
}

int read_block_line(LspciState &state, const char *line, int length) noexcept {
    if (length == 1) {
        state.slot.reset();
        return 0;
    }
    if (!contains(line, "Kernel modules:")) return 0;
    for (size_t i = 0; i < kRaidDriverCount; ++i) {
        if (add_pci_info(line, state.slot.get(), kRaidDrivers[i], state.counters[i], state.records) != 0) return -1;
    }
    return 0;
}

// Walks a directory's entries, "." and ".." left out, until `visit` says false.
enum class Walk { kDone, kUnopened, kFailed };
template <class Visit> Walk for_each_entry(const char *path, Visit visit) noexcept {
    Directory directory(path);
    if (!directory) return Walk::kUnopened;
    while (const dirent *entry = directory.next()) {
        if (!is_dot_entry(entry->d_name) && !visit(entry->d_name)) break;
    }
    return directory.failed() ? Walk::kFailed : Walk::kDone;
}

// False when the adapter's directory cannot be read to its end; one without a host keeps 0.
bool read_host(const char *device, PciInfo &record) noexcept {
    char path[PATH_MAX];
    (void)std::snprintf(path, sizeof path, "%s/%s", kPciDevices, device);
    return for_each_entry(path, [&record](const char *name) noexcept {
               int32_t host = 0;
               if (!begins_with(name, "host") || std::sscanf(name, "%*[a-zA-Z]%d", &host) != 1) return true;
               record.host = static_cast<uint32_t>(host);
               return false;
           }) != Walk::kFailed;
}

// sysfs puts the PCI domain before the address that lspci prints.
bool read_hosts(std::span<PciInfo> adapters) noexcept {
    bool complete = true;
    const Walk walk = for_each_entry(kPciDevices, [&](const char *name) noexcept {
        for (PciInfo &adapter : adapters) {
            if (ends_with(name, adapter.slot) == 1) complete = complete && read_host(name, adapter);
        }
        return complete;
    });
    return walk == Walk::kDone && complete;
}

// Host, channel, target and logical unit of a SCSI disk.
struct ScsiAddress {
    int32_t host = 0;
    int32_t channel = 0;
    int32_t target = 0;
    int32_t lun = 0;
};

bool scan_address(const char *name, ScsiAddress &address) noexcept {
    return std::sscanf(name, "%d:%d:%d:%d", &address.host, &address.channel, &address.target, &address.lun) == 4;
}

bool is_channel_of(const PciInfo &adapter, const ScsiAddress &address) noexcept {
    return adapter.host == static_cast<uint32_t>(address.host) &&
           adapter.type == static_cast<uint32_t>(address.channel);
}

// An adapter's own record stands for target 0; every further target has one of its own. The records of further
// targets repeat their adapter's host and type, so the adapters alone are searched.
int add_disk(const ScsiAddress &address, uint32_t adapters, PciInfo **list, uint32_t *count) noexcept {
    uint32_t found = 0;
    while (found < adapters && !is_channel_of((*list)[found], address)) ++found;
    if (found == adapters) return 0;
    PciInfo *record = *list + found;
    if (address.target != 0) {
        record = add_record(list, count);
        if (record == nullptr) return fail(kRaid, "unable to allocate pci info struct");
        const PciInfo &adapter = (*list)[found];
        record->type = adapter.type;
        record->number = adapter.number;
        record->host = adapter.host;
    }
    record->target = static_cast<uint32_t>(address.target);
    record->lun = static_cast<uint32_t>(address.lun);
    return 0;
}

bool read_disks(PciInfo **list, uint32_t *count) noexcept {
    const uint32_t adapters = *count;
    bool complete = true;
    const Walk walk = for_each_entry(kScsiDisks, [&](const char *name) noexcept {
        ScsiAddress address;
        complete = scan_address(name, address) && add_disk(address, adapters, list, count) == 0;
        return complete;
    });
    return walk == Walk::kDone && complete;
}

// A record without a block device keeps none: its logical drive then gets a made-up name.
void find_pci_block_device(PciInfo &record) noexcept {
    char path[PATH_MAX];
    (void)std::snprintf(path, sizeof path, "%s%d:%d:%d:%d/device/block", kScsiDisks, static_cast<int>(record.host),
                        static_cast<int>(record.type), static_cast<int>(record.target), static_cast<int>(record.lun));
    (void)for_each_entry(path, [&record](const char *name) noexcept {
        record.device = make_text("/dev/%s", name).release();
        return false;
    });
}

} // namespace

namespace torvane {

int parse_lspci_output(FILE *stream, PciInfo **list, uint32_t *count) noexcept {
    LspciState state{{list, count}, nullptr};
    int status = 0;
    const bool complete = for_each_line(stream, [&](const char *line, int length) noexcept {
        status = state.slot ? read_block_line(state, line, length) : open_block(state, line);
        return status == 0;
    });
    if (complete && status == 0) return 0;
    discard(list, count);
    return -1;
}

} // namespace torvane

int lookup_pci_info(PciInfo **list, uint32_t *count) noexcept {
    if (list == nullptr || count == nullptr) return -1;
    *count = 0;
    if (run_tool(kListPci, [&](FILE *output) noexcept { return parse_lspci_output(output, list, count); }) != 0) {
        discard(list, count);
        return -1;
    }
    if (*count == 0) return 0;
    if (!read_hosts({*list, *count}) || !read_disks(list, count)) {
        discard(list, count);
        return 0;
    }
    for (PciInfo &record : std::span(*list, *count)) find_pci_block_device(record);
    return 0;
}

void release_pci_info(PciInfo *list, int count) noexcept {
    if (list == nullptr) return;
    for (int i = 0; i < count; ++i) {
        std::free(list[i].slot);
        std::free(list[i].device);
    }
    std::free(list);
}
