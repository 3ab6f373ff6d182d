// One file each, registered in the order in which the help names them.
#pragma once

#include "commands/command_line.h"

namespace tool {

void add_list_command(const Command &tool);
void add_show_command(const Command &tool);
void add_find_command(const Command &tool);
void add_raid_command(const Command &tool);
void add_health_command(const Command &tool);
void add_bay_commands(const Command &tool); // bays, locate
void add_usb_command(const Command &tool);
void add_mount_commands(const Command &tool); // mount, umount
void add_tray_command(const Command &tool);
void add_wait_command(const Command &tool);
void add_watch_command(const Command &tool);
void add_diff_commands(const Command &tool); // diff, check
void add_metrics_command(const Command &tool);
void add_firmware_command(const Command &tool);
void add_help_command(const Command &tool);
void add_schema_command(const Command &tool); // hidden

const std::vector<CommandRow> &all_commands();

} // namespace tool
