#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "removable/records.h"
#include "torvane.h"

using namespace torvane;

namespace {

using Step = int (*)(ScsiDeviceInfo *device) noexcept;

int bind(ScsiDeviceInfo *device) noexcept { return bind_scsi_device_to_driver(device); }
int unbind(ScsiDeviceInfo *device) noexcept { return unbind_scsi_device_from_driver(device); }
int add_nodes(ScsiDeviceInfo *device) noexcept { return add_scsi_device_nodes_at(device, kDev); }
int delete_nodes(ScsiDeviceInfo *device) noexcept { return delete_scsi_device_nodes_at(device, kDev); }
int nothing(ScsiDeviceInfo * /*device*/) noexcept { return 0; }

struct Transition {
    uint32_t from;
    uint32_t to;
    Step step;
    Step undo[2]; // in this order, their results ignored
};

// From unbound to node only binds: the device manager makes the nodes of a device that appears. Unbinding
// leaves nodes as they are, for the same reason.
constexpr Transition kTransitions[] = {
    {STATE_UNBOUND, STATE_BOUND, bind, {unbind, nothing}},
    {STATE_UNBOUND, STATE_NODE, bind, {unbind, nothing}},
    {STATE_BOUND, STATE_NODE, add_nodes, {delete_nodes, unbind}},
    {STATE_NODE, STATE_BOUND, delete_nodes, {add_nodes, nothing}},
    {STATE_BOUND, STATE_UNBOUND, unbind, {bind, add_nodes}},
    {STATE_NODE, STATE_UNBOUND, unbind, {bind, add_nodes}},
};

int run(const Transition &transition, ScsiDeviceInfo *device) noexcept {
    if (transition.step(device) == 0) return 0;
    for (const Step undo : transition.undo) undo(device);
    return -1;
}

} // namespace

int change_scsi_device_state(ScsiDeviceInfo *device, uint32_t new_state) noexcept {
    if (device == nullptr || is_valid_state(device->state) == 0 || is_valid_state(new_state) == 0) {
        return fail(kDevice, "failed to read device, status, or state");
    }
    for (const Transition &transition : kTransitions) {
        if (transition.from == device->state && transition.to == new_state) return run(transition, device);
    }
    return 0;
}

int change_device_state(MediaRecord *media, const char *serial, uint32_t new_state) noexcept {
    if (media == nullptr || serial == nullptr || is_valid_state(new_state) == 0) {
        return fail(kDevice, "failed to read info or state is invalid");
    }
    // An adapter named by its USB serial number can only be unbound.
    const bool whole_adapter = has_serial(*media, serial) && media->status == USB_STATUS_ADAPTER;
    const uint32_t target = whole_adapter ? uint32_t{STATE_UNBOUND} : new_state;
    for (ScsiDeviceInfo &device : devices_of(*media)) {
        if (is_selected(*media, device, serial) && change_scsi_device_state(&device, target) != 0) return -1;
    }
    return 0;
}

int change_state(const char *serial, uint32_t new_state) noexcept {
    const Media media(get_usb_mass_storage_device(serial));
    return change_device_state(media.get(), serial, new_state);
}
