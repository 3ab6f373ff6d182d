#include "inventory/kernel/block.h"

#include <algorithm>

namespace inventory {
namespace {

constexpr AttributeRow kNvme[] = {
    {"model", "model", Reading::kText, Source::kIdentity},
    {"serial", "serial", Reading::kText, Source::kIdentity},
    {"firmware", "firmware_rev", Reading::kText, Source::kIdentity},
    {"device_state", "state"},
};
constexpr AttributeRow kNamespace[] = {{"wwn", "wwid", Reading::kText, Source::kIdentity}};
constexpr AttributeRow kMmc[] = {
    {"model", "name", Reading::kText, Source::kIdentity},
    {"serial", "serial", Reading::kText, Source::kIdentity},
    {"firmware", "fwrev", Reading::kText, Source::kIdentity},
};
constexpr AttributeRow kIde[] = {{"model", "model"}, {"serial", "serial"}, {"firmware", "firmware"}};

bool is_scsi(const Block &block) { return !block.place.scsi_address.empty(); }

// Of several controllers that lead to one NVMe namespace the subsystem's first one speaks for the place.
Place nvme_place(const Block &block) {
    if (!block.place.pci.empty()) return block.place;
    for (const std::string &name : block.unit.names()) {
        if (!name.starts_with("nvme") || name.find_first_not_of("0123456789", 4) != std::string::npos) continue;
        Place place = place_of(block.unit.link(name.c_str()));
        if (!place.pci.empty()) return place;
    }
    return block.place;
}

std::string driver_of(const Block &block, Hosts &hosts) {
    if (is_scsi(block)) return hosts.driver(block.place.scsi_host);
    const std::string own = last_part(block.unit.link("driver"));
    return own.empty() ? last_part(block.unit.link("device/driver")) : own;
}

// A virtio disk is asked over its queue when the attribute is read, and one that hangs would hang the reader: what the
// device manager noted when the disk came does as well.
void tell_virtio_serial(const Block &block, const Wanted &wanted) {
    const Fact *known = block.thing->fact("serial");
    if (!wanted.has("serial") || (known != nullptr && !known->words.empty())) return;
    block.thing->tell("serial", block.folder.text("serial"), Source::kKernel, "serial");
}

std::string media_of(const Block &block) {
    const Thing &thing = *block.thing;
    if (*block.row->media != '\0') return block.row->media;
    const bool is_usb = !block.place.usb_interface.empty();
    if (const auto rpm = thing.number("rpm"))
        return *rpm == 0 ? (is_usb && thing.flag("removable") ? "flash" : "ssd") : "hdd";
    // Sticks and card readers say nothing about rotation, and the kernel then assumes the worst.
    if (is_usb && thing.flag("removable")) return "flash";
    if (is_missing(thing.value("rotational"))) return "";
    return thing.flag("rotational") ? "hdd" : "ssd";
}

} // namespace

const std::string &Hosts::driver(const std::string &host) {
    const auto [place, is_new] = drivers_.try_emplace(host);
    if (!is_new) return place->second;
    const Folder folder("/sys/class/scsi_host/" + host, failures_);
    std::string name = folder.text("proc_name");
    // Drivers without a name of their own there.
    if (name.empty() || name.front() == '<' || name.front() == '(') name = last_part(folder.link("device/../driver"));
    place->second = name;
    return place->second;
}

void tell_place(const Block &block, Hosts &hosts, const Wanted &wanted) {
    Thing &thing = *block.thing;
    const bool is_nvme = std::string_view(block.row->tran) == "nvme";
    const Place controller = is_nvme ? nvme_place(block) : Place{};
    const Place &place = is_nvme ? controller : block.place;
    const std::string driver = driver_of(block, hosts);
    thing.tell("hctl", place.scsi_address, Source::kKernel, "path in /sys");
    if (wanted.has("pci")) thing.tell("pci", place.pci, Source::kKernel, "path in /sys");
    if (wanted.has("port")) thing.tell("port", port_of(place), Source::kKernel, "path in /sys");
    if (wanted.has("driver")) thing.tell("driver", driver, Source::kKernel, is_scsi(block) ? "proc_name" : "driver");
    std::string tran = block.row->tran;
    if (tran.empty() && is_scsi(block)) tran = scsi_transport(place, driver);
    thing.tell("tran", tran, Source::kKernel, "path in /sys");
    thing.tell("type", std::string(tran == "iscsi" ? "iscsi" : block.row->type), Source::kKernel, "path in /sys");
}

void tell_hardware(const Block &block, const Wanted &wanted) {
    const std::string_view tran = block.row->tran;
    if (is_scsi(block)) {
        tell_scsi_unit(*block.thing, block.unit, wanted);
    } else if (tran == "nvme") {
        tell_attributes(*block.thing, block.unit, kNvme, wanted);
        tell_attributes(*block.thing, block.folder, kNamespace, wanted);
    } else if (tran == "mmc") {
        tell_attributes(*block.thing, block.unit, kMmc, wanted);
    } else if (tran == "ide") {
        tell_attributes(*block.thing, block.unit, kIde, wanted);
    }
}

void conclude_hardware(const Block &block, const Wanted &wanted) {
    Thing &thing = *block.thing;
    if (block.row->tran == std::string_view("virtio")) tell_virtio_serial(block, wanted);
    const bool is_real = std::string_view(block.row->media) != "virtual";
    const Fact *rotation = thing.fact("rpm");
    if (thing.kind() == ThingKind::kDrive && is_real && wanted.has("rpm")) {
        const bool known = rotation != nullptr && !rotation->words.empty();
        const bool turns = is_missing(thing.value("rotational")) || thing.flag("rotational");
        if (!turns) thing.tell("rpm", std::uint64_t{0}, Source::kKernel, "queue/rotational");
        if (turns && !known) thing.lacks("rpm", "the drive does not report it");
    }
    settle(thing);
    if (wanted.has("media")) thing.tell("media", media_of(block), Source::kKernel, "queue/rotational");
    const bool has_identity = thing.kind() == ThingKind::kDrive || thing.kind() == ThingKind::kOptical;
    for (const char *key : {"serial", "wwn", "model"}) {
        if (has_identity && wanted.has(key)) thing.lacks(key, "neither the kernel nor the device manager tells it");
    }
}

} // namespace inventory
