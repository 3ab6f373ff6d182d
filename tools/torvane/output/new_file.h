// A file that appears only when it is whole.
#pragma once

#include <csignal>
#include <cstddef>
#include <string>

namespace tool {

// Written beside its place, and gone again unless it is put there. Signals wait for as long as it exists, so that
// nothing but a kill leaves it behind.
class NewFile {
  public:
    explicit NewFile(const std::string &place);
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;
    ~NewFile();

    // Complete and on the medium before it takes its name; false, with errno, when it cannot be.
    bool keep(const void *bytes, std::size_t size, bool replace);

  private:
    [[nodiscard]] bool take_free_place() const;
    bool write_all(const void *bytes, std::size_t size) const;

    std::string place_;
    std::string name_;
    int fd_ = -1;
    bool kept_ = false;
    sigset_t before_{};
};

} // namespace tool
