#include "foundation/owners.h"
#include "foundation/text.h"
#include "torvane.h"

#include <span>

using namespace torvane;

namespace {

// The look-ups that tie RAID records to devices, for the length of one naming.
struct Lookups {
    PciInfo *pci = nullptr;
    uint32_t pci_count = 0;
    InfoMapEntry *models = nullptr;
    uint32_t model_count = 0;
    InfoMapEntry *serials = nullptr;
    uint32_t serial_count = 0;

    Lookups() noexcept = default;
    Lookups(const Lookups &) = delete;
    Lookups &operator=(const Lookups &) = delete;
    ~Lookups() {
        release_pci_info(pci, static_cast<int>(pci_count));
        release_info_map(models, static_cast<int>(model_count));
        release_info_map(serials, static_cast<int>(serial_count));
    }
};

int take_name(char *&device, CString name) noexcept {
    if (!name) return -1;
    replace(device, std::move(name));
    return 0;
}

int take_copy(char *&device, const char *name) noexcept { return take_name(device, CString(duplicate_str(name))); }

// The kernel reports a logical drive's name as the end of the model of the disk that shows it.
int match_model(const char *name, std::span<const InfoMapEntry> models, const InfoMapEntry *&match) noexcept {
    match = nullptr;
    if (models.empty()) return 0;
    const CString ending = make_text(" %s", name == nullptr ? "" : name);
    if (!ending) return -1;
    for (const InfoMapEntry &entry : models) {
        if (ends_with(entry.info, ending.get()) == 0) continue;
        match = &entry;
        break;
    }
    return 0;
}

// Kept: adapters of one driver are counted from 0 and Adaptec controllers from 1, and the numbers are compared as
// they stand. The first Adaptec controller's logical drives thus get the second adapter's disks, or made-up names.
bool shows(const PciInfo &pci, const RaidController &controller, const RaidDriveGroup &group) noexcept {
    return pci.device != nullptr && pci.type == controller.type &&
           pci.number == static_cast<uint32_t>(group.controller_number) &&
           pci.target == static_cast<uint32_t>(group.logical_number);
}

const PciInfo *match_pci(const RaidController &controller, const RaidDriveGroup &group,
                         std::span<const PciInfo> records) noexcept {
    if (group.device != nullptr) return nullptr;
    for (const PciInfo &record : records) {
        if (shows(record, controller, group)) return &record;
    }
    return nullptr;
}

template <class T> std::span<T> span_of(T *array, int64_t count) noexcept {
    return array == nullptr || count < 1 ? std::span<T>() : std::span<T>(array, static_cast<size_t>(count));
}

} // namespace

int relate_group_to_name(const RaidController *controller, RaidDriveGroup *group, const InfoMapEntry *model_map,
                         uint32_t model_count, const PciInfo *pci, int pci_count) noexcept {
    if (controller == nullptr || group == nullptr) return -1;
    const InfoMapEntry *model = nullptr;
    if (match_model(group->name, span_of(model_map, model_count), model) != 0) return -1;
    if (model != nullptr) return take_copy(group->device, model->device);
    const PciInfo *record = match_pci(*controller, *group, span_of(pci, pci_count));
    if (record != nullptr) return take_copy(group->device, record->device);
    return take_name(group->device, make_text("/dev/raid_%d_%d_%d", static_cast<int32_t>(controller->type),
                                              static_cast<int32_t>(controller->number), group->logical_number));
}

int relate_drive_to_name(const RaidController *controller, RaidDrive *drive, const InfoMapEntry *serial_map,
                         int serial_count) noexcept {
    if (controller == nullptr || drive == nullptr) return -1;
    for (const InfoMapEntry &entry : span_of(serial_map, serial_count)) {
        if (entry.info == nullptr || drive->serial == nullptr) continue;
        if (equal(entry.info, drive->serial)) return take_copy(drive->device, entry.device);
    }
    return take_name(drive->device,
                     make_text("/dev/sg_raid_%d_%d_%d", static_cast<int32_t>(controller->type),
                               static_cast<int32_t>(controller->number), static_cast<int32_t>(drive->number)));
}

int assign_names_to_raids(RaidController *list, int count, const InfoMapEntry *model_map, uint32_t model_count,
                          const InfoMapEntry *serial_map, uint32_t serial_count, const PciInfo *pci,
                          uint32_t pci_count) noexcept {
    if (list == nullptr && count > 0) return -1;
    const auto name_drives = [&](const RaidController &owner, std::span<RaidDrive> drives) noexcept {
        for (RaidDrive &drive : drives) {
            if (relate_drive_to_name(&owner, &drive, serial_map, static_cast<int>(serial_count)) != 0) return -1;
        }
        return 0;
    };
    for (const RaidController &controller : span_of(list, count)) {
        for (RaidDriveGroup &group : std::span(controller.groups, controller.group_count)) {
            if (relate_group_to_name(&controller, &group, model_map, model_count, pci, static_cast<int>(pci_count)) !=
                0)
                return -1;
            if (name_drives(controller, {group.drives, group.drive_count}) != 0) return -1;
        }
        if (name_drives(controller, {controller.drives, controller.drive_count}) != 0) return -1;
    }
    return 0;
}

int relate_drives_to_names(RaidController *list, uint32_t count) noexcept {
    if (list == nullptr && count > 0) return -1;
    Lookups found;
    if (lookup_pci_info(&found.pci, &found.pci_count) != 0) return -1;
    if (relate_model_to_drives(&found.models, &found.model_count) != 0) return -1;
    if (relate_serial_to_drives(&found.serials, &found.serial_count) != 0) return -1;
    return assign_names_to_raids(list, static_cast<int>(count), found.models, found.model_count, found.serials,
                                 found.serial_count, found.pci, found.pci_count);
}
