// What went wrong: collected while a command works, told at its end, and turned into the exit code.
#pragma once

#include "inventory/machine.h"

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

using inventory::Trouble;
using Troubles = std::vector<Trouble>;

enum ExitCode { kDone = 0, kFailed = 1, kWrongUsage = 2, kPartly = 64 };

// Words on the command line that mean nothing here; told in one line, with where to read more.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// One line on standard error: "torvane: TEXT".
void complain(std::string_view text);

// Wrong usage, said in one line and where to read more.
int refuse(std::string_view text, std::string_view command = {});

// Every trouble on standard error: devices with the same trouble in one line, each remedy once.
void tell(const Troubles &troubles);

// 0 when all went well, 64 when something could be shown all the same, else 1.
int exit_code(const Troubles &troubles, bool anything_shown);

} // namespace tool
