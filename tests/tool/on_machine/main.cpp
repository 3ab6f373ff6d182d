// Runs a command on a machine made of files, seen by that command alone: no device of the real one can be reached.
//   torvane_on_machine MACHINE.tree COMMAND [ARGUMENT...]
#include "../../inventory/tree.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

// Of the real /dev what every program needs; the machine's own nodes are for the command to make.
void cover_devices() {
    fs::create_directories("/run/dev");
    inventory::tests::mount_at("/run/dev", "/dev");
    inventory::tests::mount_at("/dev");
    for (const char *name : {"null", "zero", "full", "urandom", "tty", "pts", "ptmx", "fd", "shm"}) {
        fs::create_symlink(std::string("/run/dev/") + name, std::string("/dev/") + name);
    }
}

// What the programs' own run time reads of itself, sanitizers for one.
void show_programs_themselves() {
    for (const char *name : {"exe", "maps", "task", "status", "stat", "environ", "cmdline"}) {
        fs::create_symlink(std::string("/run/proc/self/") + name, std::string("/proc/self/") + name);
    }
    // Leaks are looked for by way of /proc/NUMBER, which no machine made of files has.
    const char *options = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (std::string(options != nullptr ? options : "") + ":detect_leaks=0").c_str(), 1);
    // The loader takes a program's place from that link, too, and would not find the library beside it.
    setenv("LD_LIBRARY_PATH", LIBRARY_FOLDER, 1);
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: torvane_on_machine MACHINE.tree COMMAND [ARGUMENT...]\n");
        return 2;
    }
    try {
        // The command keeps it until it ends, and with its end the namespace goes.
        static const inventory::tests::Tree tree(inventory::tests::content_of(argv[1]));
        cover_devices();
        show_programs_themselves();
        execvp(argv[2], argv + 2);
        std::fprintf(stderr, "%s: %s\n", argv[2], std::strerror(errno));
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    return 125; // of env(1): the command was not run
}
