// The directory that 'torvane mount' made, and its end.
#pragma once

#include <string>

namespace tool {

// Whether it has a name of those that 'torvane mount' makes.
bool is_made_by_mount(const std::string &directory);

// A new directory of that kind, for the caller alone; "" or why there is none.
std::string make_mount_directory(std::string &directory);

// Mounts that the library made "read-only" may still run programs and hold device nodes: not so here. "" or why not.
std::string harden_mounts(const std::string &directory);

// Unmounts all that is mounted below the directory and removes it; "" or why not. Only what 'torvane mount' made of the
// caller's own is touched, by the one directory that was opened and looked at: a link or another directory that
// somebody puts in its place meanwhile is never followed.
std::string end_mounts(const std::string &directory);

} // namespace tool
