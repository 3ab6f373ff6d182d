// What a command has to look at for the columns that it shows.
#pragma once

#include "commands/command_line.h"
#include "inventory/survey/survey.h"
#include "output/messages.h"

namespace tool {

// Whether the drive itself is among the fact's sources.
bool asks_drive(const Column &column);

// The cheapest look that fills what the listing asks for. Without root no device may be opened, and none is tried.
inventory::Request look_for(const Listing &listing);

// Behind a controller a drive has a role; among drives it is a member of something, whichever.
void mark_members(inventory::Machine &machine);

// The machine's troubles that the user should read: of all, or of what was named; and what root would add.
Troubles told_troubles(const inventory::Machine &machine, const std::vector<std::string> &names);

// Of RAID controllers, arrays and their drives alone, and of whole sources.
Troubles raid_troubles(const inventory::Machine &machine);

// A line on standard error for every serial number that several drives have; with names, only for theirs.
void tell_duplicates(const inventory::Machine &machine, const std::vector<std::string> &ids = {});

} // namespace tool
