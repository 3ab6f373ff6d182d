// A folder of /sys, held open: its attributes are read by short names, which spares the kernel the way there.
#pragma once

#include "inventory/machine.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace inventory {

// Something that is there could not be read. Its absence is no failure, and neither is a missing right.
struct ReadFailure {
    std::string name;
    int error;
};
using ReadFailures = std::vector<ReadFailure>;

class Folder {
  public:
    Folder() = default;
    // What fails here and in folders below it is noted there.
    explicit Folder(const std::string &path, ReadFailures *failures = nullptr);
    Folder(const Folder &parent, const std::string &name);
    Folder(Folder &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)), failures_(other.failures_) {}
    Folder &operator=(Folder &&other) noexcept;
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    ~Folder();

    [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }

    // The attribute as it is; nothing when it is missing or cannot be read. Names may lead further down.
    [[nodiscard]] std::optional<std::string> bytes(const char *name) const;
    // A list of /proc: it ends where nothing more comes, not at a read that came short.
    [[nodiscard]] std::string table(const char *name) const;
    // Without the newline; "" when it is missing or cannot be read.
    [[nodiscard]] std::string text(const char *name) const;
    [[nodiscard]] std::optional<std::uint64_t> number(const char *name) const;
    // Where a symbolic link leads; "" when there is none.
    [[nodiscard]] std::string link(const char *name) const;
    [[nodiscard]] bool has(const char *name) const;
    // Names in this folder, or in the one below it; sorted.
    [[nodiscard]] std::vector<std::string> names(const char *below = ".") const;

    // Writes to an attribute: 0 or errno.
    [[nodiscard]] int write(const char *name, std::string_view text) const;

  private:
    void note(const char *name) const;

    int descriptor_ = -1;
    ReadFailures *failures_ = nullptr;
};

// Moves what could not be read to the thing's troubles.
void tell_failures(Thing &thing, ReadFailures &failures);
// Of a whole source, named by its path; the same failure once.
void tell_failures(Machine &machine, const std::string &source, ReadFailures &failures);

// The part of a path behind its last slash.
std::string last_part(std::string_view path);

// A whole decimal number and nothing else.
std::optional<std::uint64_t> parse_number(std::string_view text);

} // namespace inventory
