// One file each, registered in the order in which the help names them.
#pragma once

#include "options.h"

namespace tool {

void add_list_command(CLI::App &tool, Action &chosen);
void add_show_command(CLI::App &tool, Action &chosen);

} // namespace tool
