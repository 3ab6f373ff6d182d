// A machine made of files: the program's own calls for /sys, /proc and /run/udev are answered from them.
#ifndef TORVANE_FUZZ_MADE_FILES_H
#define TORVANE_FUZZ_MADE_FILES_H

#include <cstdint>
#include <string_view>

namespace torvane::fuzz {

// The files, separated by the byte 1Eh: each PATH=CONTENT or, for a symbolic link, PATH>TARGET. Everything above them is
// a folder; what is not among them does not exist.
void make_files(std::string_view description);
void remove_files();

} // namespace torvane::fuzz

#endif
