// One file each, registered in the order in which the help names them.
#pragma once

#include "options.h"

namespace tool {

void add_list_command(CLI::App &tool, Action &chosen);
void add_show_command(CLI::App &tool, Action &chosen);
void add_raid_command(CLI::App &tool, Action &chosen);
void add_usb_command(CLI::App &tool, Action &chosen);
void add_mount_commands(CLI::App &tool, Action &chosen); // mount, umount, tray
void add_wait_commands(CLI::App &tool, Action &chosen);  // wait, watch
void add_firmware_command(CLI::App &tool, Action &chosen);

} // namespace tool
