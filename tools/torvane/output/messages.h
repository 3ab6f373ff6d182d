// What went wrong: collected while a command works, told at its end, and turned into the exit code.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

enum ExitCode { kDone = 0, kFailed = 1, kWrongUsage = 2, kPartly = 64 };

struct Failure {
    std::string source; // device path or tool
    std::string reader; // what could not be read, "" for all of it
    std::string words;  // why, in the library's words where it has any
    std::string remedy; // what to do about it, "" when nothing comes to mind
    // Whether the answer is incomplete without it: a solid-state disk has no rotation speed, and nothing is wrong.
    bool essential = true;
};

// One line on standard error: "torvane: TEXT".
void complain(std::string_view text);

// Wrong usage, said in one line and where to read more.
int refuse(std::string_view text, std::string_view command = {});

// Every essential failure on standard error, each remedy once. Long rows of the same trouble are cut short.
void tell(const std::vector<Failure> &failures);

// 0 when all went well, 64 when something could be shown all the same, else 1.
int exit_code(const std::vector<Failure> &failures, bool anything_shown);

} // namespace tool
