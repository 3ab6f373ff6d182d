// The process between the program and a command that it runs: it ends the command and all that came of it, whether the
// command is through, its time is over, or the program is gone.
#pragma once

#include <sys/types.h>

namespace inventory {

struct KeeperTask {
    char *const *arguments;   // of the command; the first is its file
    char *const *environment; //
    const char *folder;       // scratch folder: the command stands in it; removed at the end
    int output;               // ends of pipes that become the command's standard output and error
    int errors;               //
    int lifeline;             // nothing is ever sent here; its end means: end the command
    int report;               // for KeeperReports
};

struct KeeperReport {
    int start_error; // errno when the command could not be started, and nothing else is told
    int wait_status; // as waitpid() gives it; -1 when the command did not end by itself
};

// The life of the keeper, in the child of a fork.
[[noreturn]] void be_the_keeper(const KeeperTask &task);

} // namespace inventory
