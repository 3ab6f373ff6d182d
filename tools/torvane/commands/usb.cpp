// torvane usb: USB mass storage, and the states its devices can be put in.
#include "commands/commands.h"
#include "drives.h"
#include "records.h"
#include "usb.h"
#include "usb_users.h"

#include <array>
#include <memory>

namespace tool {
namespace {

constexpr std::array<const char *, 3> kStates{"unbound", "bound", "node"};
constexpr uint64_t kSectorBytes = 512;

struct UsbOptions {
    OutputOptions output;
    double timeout = kDefaultLimit.count();
    std::string serial;
    std::string state;
    bool wait = false;
    bool force = false;
};

constexpr unsigned kInterface = 1;
constexpr unsigned kDevice = 2;

constexpr Column kColumns[] = {
    {"NAME", "name", Kind::kText, "", kInterface | kDevice},
    {"TYPE", "type", Kind::kText, "", kInterface | kDevice},
    {"ADDRESS", "address", Kind::kText, "", kDevice},
    {"DRIVER", "driver", Kind::kText, "", kDevice},
    {"STATE", "state", Kind::kText, "", kDevice},
    {"SIZE", "size", Kind::kBytes, "", kDevice},
    {"MODEL", "model", Kind::kText, "", kInterface | kDevice, true},
    {"SERIAL", "serial", Kind::kText, "", kInterface | kDevice, true},
    {"ENCLOSURE", "enclosure", Kind::kText, "", kInterface},
};

Value text(const Wire &record, const char *key) {
    const Wire &value = record.at(key);
    return value.is_null() ? Value() : Value(value.get<std::string>());
}

std::string type_of(const Wire &device) {
    const auto type = device.at("type").get<uint32_t>();
    switch (type) {
    case SCSI_TYPE_DISK: return "disk";
    case SCSI_TYPE_TAPE: return "tape";
    case SCSI_TYPE_OPTICAL: return "optical";
    case SCSI_TYPE_ENCLOSURE: return "enclosure";
    default: return "type-" + std::to_string(type);
    }
}

Value state_of(const Wire &device) {
    const auto state = device.at("state").get<std::size_t>();
    return state < kStates.size() ? Value(std::string(kStates.at(state))) : Value();
}

// The kernel counts in sectors of 512 bytes, and 0 is unknown.
Value size_of_device(const Wire &device) {
    const auto sectors = device.at("sectors").get<uint64_t>();
    uint64_t bytes = 0;
    const bool known = sectors != 0 && !__builtin_mul_overflow(sectors, kSectorBytes, &bytes);
    return known ? Value(std::uint64_t{bytes}) : Value();
}

Row device_row(const Wire &device) {
    return {1,
            {text(device, "name"),
             type_of(device),
             text(device, "address"),
             text(device, "driver"),
             state_of(device),
             size_of_device(device),
             text(device, "model"),
             text(device, "serial"),
             {}},
            {},
            false};
}

Row interface_row(const Wire &interface) {
    Branch devices{"devices", {}};
    for (const Wire &device : interface.at("devices")) devices.rows.push_back(device_row(device));
    const bool is_adapter = interface.at("status").get<uint32_t>() == USB_STATUS_ADAPTER;
    return {0,
            {text(interface, "name"),
             std::string(is_adapter ? "adapter" : "device"),
             {},
             {},
             {},
             {},
             text(interface, "model"),
             text(interface, "serial"),
             interface.at("has_enclosure").get<bool>()},
            {std::move(devices)},
            false};
}

int list(const UsbOptions &options) {
    std::vector<Failure> failures;
    const Wire interfaces = find_interfaces(to_limit(options.timeout), failures);
    Table table;
    for (const Column &column : kColumns) table.columns.push_back(&column);
    table.root.key = "interfaces";
    for (const Wire &interface : interfaces) table.root.rows.push_back(interface_row(interface));
    if (options.output.json || !interfaces.empty()) print_table(table, options.output.style(), stdout);
    tell(failures);
    if (interfaces.empty() && failures.empty() && !options.output.json) complain("no USB storage found");
    return exit_code(failures, !interfaces.empty());
}

// Whether nothing uses the devices; otherwise says who does.
bool may_go(const Selected &selected) {
    bool may = true;
    for (const Wire &device : selected.devices) {
        if (device.at("name").is_null()) continue;
        for (const std::string &user : users_of(device.at("name").get<std::string>())) {
            complain("'" + selected.interface.at("name").get<std::string>() + "' is in use: " + user);
            may = false;
        }
    }
    if (!may) complain("free it first, or unbind it all the same with --force");
    return may;
}

// A change of the library's, in a process that may hang on the device without harm.
int change(const UsbOptions &options, const std::function<int()> &action, const char *what) {
    const Outcome outcome = run_isolated(
        [&action]() -> Wire {
            if (action() == 0) return "";
            const std::string words = words_about({TORVANE_ERROR_MOUNT, TORVANE_ERROR_DEVICE});
            return words.empty() ? "the kernel refused" : words;
        },
        to_limit(options.timeout));
    const bool done = outcome.state == Outcome::State::kDone;
    const std::string words = done ? outcome.result.get<std::string>() : outcome.words;
    if (words.empty()) return kDone;
    complain("cannot " + std::string(what) + " '" + options.serial + "': " + words);
    return kFailed;
}

int set_state(const UsbOptions &options) {
    const auto *const state = std::find(kStates.begin(), kStates.end(), options.state);
    const auto number = static_cast<uint32_t>(state - kStates.begin());
    Selected selected;
    if (!select_one(options.serial, to_limit(options.timeout), selected)) return kFailed;
    if (number == STATE_UNBOUND && !options.force && !may_go(selected)) return kFailed;
    return change(
        options, [&] { return change_state(options.serial.c_str(), number); }, "change the state of");
}

int bind(const UsbOptions &options) {
    Selected selected;
    if (!select_one(options.serial, to_limit(options.timeout), selected)) return kFailed;
    const auto bind_it = options.wait ? bind_to_driver_with_wait_for_devices : bind_to_driver;
    return change(
        options, [&] { return bind_it(options.serial.c_str()); }, "bind");
}

int unbind(const UsbOptions &options) {
    Selected selected;
    if (!select_one(options.serial, to_limit(options.timeout), selected)) return kFailed;
    if (!options.force && !may_go(selected)) return kFailed;
    const auto unbind_all = [&] {
        if (unbind_from_driver(options.serial.c_str()) != 0) return -1;
        const auto seconds = static_cast<uint32_t>(to_limit(options.timeout).count() / 1000);
        for (const Wire &device : selected.devices) {
            if (!options.wait || device.at("name").is_null()) continue;
            const auto name = device.at("name").get<std::string>();
            if (wait_till_file_is_deleted("/dev", name.c_str(), seconds) == 0) continue;
            set_error_str(TORVANE_ERROR_MOUNT, "unbound, but /dev/%s is still there", name.c_str());
            return -1;
        }
        return 0;
    };
    return change(options, unbind_all, "unbind");
}

CLI::App &add_change(CLI::App &usb, Action &chosen, const char *name, const char *summary,
                     const std::shared_ptr<UsbOptions> &options, int (*action)(const UsbOptions &)) {
    CLI::App &command = add_command(usb, chosen, name, summary, [options, action] { return action(*options); });
    command.add_option("SERIAL", options->serial, "the beginning of one serial number")->required();
    add_timeout_option(command, options->timeout);
    return command;
}

} // namespace

void add_usb_command(CLI::App &tool, Action &chosen) {
    const auto options = std::make_shared<UsbOptions>();
    CLI::App &usb = *tool.add_subcommand("usb", "Show USB storage; bind it to its driver or keep it away.");
    usb.group("Commands");
    usb.parse_complete_callback([&chosen, options] { chosen = [options] { return list(*options); }; });
    add_output_options(usb, options->output);
    add_timeout_option(usb, options->timeout);
    CLI::App &state =
        add_change(usb, chosen, "state", "Put a device into a state: unbound, bound or node.", options, set_state);
    state.add_option("STATE", options->state, "unbound, bound, or node: bound and with a node in /dev")
        ->required()
        ->check(CLI::IsMember(std::vector<std::string>(kStates.begin(), kStates.end())));
    state.add_flag("--force", options->force, "even when it is in use");
    CLI::App &bind_command = add_change(usb, chosen, "bind", "Bind a device to its driver.", options, bind);
    bind_command.add_flag("--wait", options->wait, "wait until its disk is there");
    CLI::App &unbind_command = add_change(usb, chosen, "unbind", "Take a device from its driver.", options, unbind);
    unbind_command.add_flag("--wait", options->wait, "wait until its node is gone");
    unbind_command.add_flag("--force", options->force, "even when it is in use");
}

} // namespace tool
