// Where a device hangs: read off its path below /sys/devices, which costs nothing.
#pragma once

#include <string>
#include <string_view>

namespace inventory {

struct Place {
    std::string pci;           // "0000:00:1f.2", of the controller next to the device
    std::string ata_port;      // "ata1"
    std::string scsi_host;     // "host0"
    std::string scsi_address;  // "0:0:0:0"
    std::string usb_interface; // "1-2:1.0"
    std::string usb_port;      // "1-2"
    std::string sas_device;    // "end_device-0:0"
    std::string remote_port;   // "rport-1:0-0", Fibre Channel
    std::string session;       // "session1", iSCSI
    std::string mmc_host;      // "mmc0"
    std::string parent;        // name of the folder that the device's own is in
    bool virtual_device = false;
};

Place place_of(std::string_view path);

} // namespace inventory
