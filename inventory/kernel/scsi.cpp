// SCSI devices, and all that speak like them: SATA, SAS, USB, iSCSI.
#include "inventory/kernel/block.h"
#include "inventory/kernel/pages.h"

#include <algorithm>

namespace inventory {
namespace {

constexpr AttributeRow kScsi[] = {
    {"model", "model"},
    {"firmware", "rev"},
    {"device_state", "state"},
    {"generic", "generic", Reading::kNode},
};
// Drivers of controllers whose disks are logical drives, unless a SAS port of their own tells otherwise.
constexpr std::string_view kRaidDrivers[] = {"megaraid_sas", "megaraid", "aacraid", "hpsa",    "smartpqi",
                                             "mpi3mr",       "arcmsr",   "3w-sas",  "3w-9xxx", "ips"};

bool is_raid_driver(std::string_view driver) {
    return std::find(std::begin(kRaidDrivers), std::end(kRaidDrivers), driver) != std::end(kRaidDrivers);
}

// libata drives parallel ports too.
std::string ata_transport(std::string_view driver) {
    return driver.starts_with("pata") || driver.starts_with("ata_") ? "ide" : "sata";
}

void tell_ata_identity(Thing &thing, const AtaIdentity &identity) {
    constexpr const char *kIdentityPage = "vpd_pg89";
    thing.tell("model", identity.model, Source::kIdentity, kIdentityPage);
    thing.tell("firmware", identity.firmware, Source::kIdentity, kIdentityPage);
    thing.tell("serial", identity.serial, Source::kIdentity, kIdentityPage);
    thing.tell("wwn", identity.wwn, Source::kIdentity, kIdentityPage);
    if (identity.rotation) thing.tell("rpm", *identity.rotation, Source::kIdentity, kIdentityPage);
}

} // namespace

std::string scsi_transport(const Place &place, std::string_view driver) {
    if (!place.usb_interface.empty()) return driver == "uas" ? "uas" : "usb";
    if (!place.session.empty()) return "iscsi";
    if (!place.remote_port.empty()) return "fc";
    if (!place.sas_device.empty()) return "sas";
    if (!place.ata_port.empty()) return ata_transport(driver);
    return is_raid_driver(driver) ? "raid" : "scsi";
}

std::string port_of(const Place &place) {
    for (const std::string *port :
         {&place.usb_port, &place.session, &place.remote_port, &place.sas_device, &place.ata_port, &place.mmc_host}) {
        if (!port->empty()) return *port;
    }
    return "";
}

void tell_scsi_unit(Thing &thing, const Folder &unit, const Wanted &wanted) {
    const bool may_be_ata =
        thing.kind() == ThingKind::kDrive && wanted.any({"model", "firmware", "rpm", "serial", "wwn"});
    const std::string vendor = may_be_ata || wanted.has("vendor") ? unit.text("vendor") : "";
    if (wanted.has("vendor")) thing.tell("vendor", vendor, Source::kKernel, "vendor");
    tell_attributes(thing, unit, kScsi, wanted);
    const auto page = [&unit](const char *name) { return unit.bytes(name).value_or(""); };
    if (wanted.has("serial")) thing.tell("serial", serial_of_page(page("vpd_pg80")), Source::kIdentity, "vpd_pg80");
    if (wanted.has("wwn")) thing.tell("wwn", wwn_of_page(page("vpd_pg83")), Source::kIdentity, "vpd_pg83");
    if (thing.kind() != ThingKind::kDrive) return;
    if (wanted.has("rpm")) {
        const auto rotation = rotation_of_page(page("vpd_pgb1"));
        if (rotation) thing.tell("rpm", *rotation, Source::kIdentity, "vpd_pgb1");
    }
    if (!may_be_ata) return;
    // SAT-4, 10.3: a translation layer calls every ATA drive so. Others that have the page, as emulated disks do, fill it
    // with what is not theirs.
    if (vendor != "ATA" && !vendor.starts_with("ATA ")) return;
    if (const auto identity = ata_identity_of_page(page("vpd_pg89"))) tell_ata_identity(thing, *identity);
}

} // namespace inventory
