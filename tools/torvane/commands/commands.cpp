#include "commands/commands.h"

namespace tool {

void add_commands(const Command &tool) {
    constexpr void (*kAll[])(const Command &) = {
        add_list_command,    add_show_command,     add_find_command,  add_raid_command,
        add_health_command,  add_bay_commands,     add_usb_command,   add_mount_commands,
        add_tray_command,    add_wait_command,     add_watch_command, add_diff_commands,
        add_metrics_command, add_firmware_command, add_help_command,  add_schema_command,
    };
    for (const auto add : kAll) add(tool);
}

} // namespace tool
