#pragma once

#include <string>

namespace tool {

// Prints what is created, written, deleted and renamed in the directory and all below it, until a signal or its end.
// The result is the exit code.
int watch_files(const std::string &directory, bool json);

} // namespace tool
