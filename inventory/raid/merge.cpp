#include "inventory/raid/merge.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <set>

namespace inventory::raid {
namespace {

std::set<std::string> serials_of(const Controller &controller) {
    std::set<std::string> serials;
    for (const PhysicalDrive &drive : controller.drives) {
        if (!drive.serial.empty()) serials.insert(lower(drive.serial));
    }
    return serials;
}

// Most drives of the smaller list are in the other one: shelves with two controllers share some, not all the same.
bool share_drives(const Controller &left, const Controller &right) {
    const std::set<std::string> one = serials_of(left);
    const std::set<std::string> other = serials_of(right);
    const auto shared = static_cast<std::size_t>(
        std::count_if(one.begin(), one.end(), [&](const std::string &serial) { return other.contains(serial); }));
    return shared > 0 && 2 * shared >= std::min(one.size(), other.size());
}

bool is_same(const Controller &left, const Controller &right) {
    if (!left.pci.empty() && !right.pci.empty()) return left.pci == right.pci;
    if (!left.serial.empty() && same_word(left.serial, right.serial)) return true;
    return share_drives(left, right);
}

void fill(std::string &into, const std::string &from) {
    if (into.empty()) into = from;
}
template <class T> void fill(std::optional<T> &into, const std::optional<T> &from) {
    if (!into) into = from;
}

void fill_drive(PhysicalDrive &drive, const PhysicalDrive &other) {
    fill(drive.serial, other.serial);
    fill(drive.vendor, other.vendor);
    fill(drive.model, other.model);
    fill(drive.firmware, other.firmware);
    fill(drive.wwn, other.wwn);
    fill(drive.state, other.state);
    fill(drive.media, other.media);
    fill(drive.interface, other.interface);
    fill(drive.kernel_device, other.kernel_device);
    fill(drive.bytes, other.bytes);
    fill(drive.media_errors, other.media_errors);
    fill(drive.other_errors, other.other_errors);
    fill(drive.predictive_failures, other.predictive_failures);
    fill(drive.celsius, other.celsius);
    drive.predictive_failure = drive.predictive_failure || other.predictive_failure;
}

// By its serial number; by its place when one of the two tells none.
bool is_same(const PhysicalDrive &left, const PhysicalDrive &right) {
    if (!left.serial.empty() && !right.serial.empty()) return same_word(left.serial, right.serial);
    return !left.slot.empty() && left.slot == right.slot && left.enclosure == right.enclosure;
}

void fill_controller(Controller &controller, const Controller &other) {
    fill(controller.model, other.model);
    fill(controller.serial, other.serial);
    fill(controller.firmware, other.firmware);
    fill(controller.driver, other.driver);
    fill(controller.pci, other.pci);
    fill(controller.state, other.state);
    fill(controller.celsius, other.celsius);
    if (controller.drives.empty() && controller.logical.empty()) {
        controller.drives = other.drives;
        controller.logical = other.logical;
        controller.drives_told = controller.drives_told || other.drives_told;
        return;
    }
    for (PhysicalDrive &drive : controller.drives) {
        for (const PhysicalDrive &same : other.drives) {
            if (is_same(drive, same)) fill_drive(drive, same);
        }
    }
}

bool is_taken(const std::vector<Found> &found, const Adapter &adapter) {
    return std::any_of(found.begin(), found.end(), [&](const Found &other) { return other.adapter == &adapter; });
}

// By address, by serial number, or because there is but one that it can be.
const Adapter *adapter_of(const Found &wanted, const std::vector<Found> &found, const std::vector<Adapter> &adapters) {
    std::vector<const Adapter *> possible;
    for (const Adapter &adapter : adapters) {
        if (adapter.pci == wanted.controller.pci) return &adapter;
        if (!adapter.serial.empty() && same_word(adapter.serial, wanted.controller.serial)) return &adapter;
        if (manages(*wanted.tool, adapter) && !is_taken(found, adapter)) possible.push_back(&adapter);
    }
    const auto alike = std::count_if(found.begin(), found.end(), [&](const Found &other) {
        return other.adapter == nullptr && other.controller.pci.empty() && other.tool == wanted.tool;
    });
    const bool only_one = possible.size() == 1 && alike == 1 && wanted.controller.pci.empty();
    return only_one ? possible.front() : nullptr;
}

} // namespace

bool manages(const Tool &tool, const Adapter &adapter) {
    return std::any_of(tool.drivers.begin(), tool.drivers.end(),
                       [&](const char *driver) { return adapter.driver == driver; });
}

bool is_told(const Adapter &adapter, const std::vector<Found> &found) {
    return std::any_of(found.begin(), found.end(), [&](const Found &one) { return one.adapter == &adapter; });
}

std::vector<Found> merged(const std::vector<Answer> &answers, const std::vector<Adapter> &adapters) {
    std::vector<Found> found;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const std::size_t before = found.size(); // one tool counts no controller twice
        for (const Controller &controller : answers[i].survey.controllers) {
            const auto end = found.begin() + static_cast<std::ptrdiff_t>(before);
            const auto known = std::find_if(found.begin(), end,
                                            [&](const Found &other) { return is_same(other.controller, controller); });
            if (known != end) {
                fill_controller(known->controller, controller);
            } else {
                found.push_back({controller, answers[i].tool, i, nullptr});
            }
        }
    }
    for (Found &one : found) {
        one.adapter = adapter_of(one, found, adapters);
        if (one.adapter == nullptr) continue;
        fill(one.controller.pci, one.adapter->pci);
        one.controller.driver = one.adapter->driver;
    }
    return found;
}

} // namespace inventory::raid
