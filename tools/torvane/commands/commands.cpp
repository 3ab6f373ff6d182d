#include "commands/commands.h"

namespace tool {

const std::vector<CommandRow> &all_commands() {
    static const std::vector<CommandRow> all{
        {{"list"}, add_list_command},       {{"show"}, add_show_command},
        {{"find"}, add_find_command},       {{"raid"}, add_raid_command},
        {{"health"}, add_health_command},   {{"bays", "locate"}, add_bay_commands},
        {{"usb"}, add_usb_command},         {{"mount", "umount"}, add_mount_commands},
        {{"tray"}, add_tray_command},       {{"wait"}, add_wait_command},
        {{"watch"}, add_watch_command},     {{"diff", "check"}, add_diff_commands},
        {{"metrics"}, add_metrics_command}, {{"firmware"}, add_firmware_command},
        {{"help"}, add_help_command},       {{"schema"}, add_schema_command},
    };
    return all;
}

} // namespace tool
