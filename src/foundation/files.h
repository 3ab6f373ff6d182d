// Descriptors that a device function was given or has opened for itself.
#ifndef TORVANE_FOUNDATION_FILES_H
#define TORVANE_FOUNDATION_FILES_H

#include <cstdint>

namespace torvane {

// close_valid_fd() for the library's own functions: without memory for its stream it still closes, since
// nobody else knows of the descriptor.
int close_active_fd(int given, int active) noexcept;

// What a device function works on: the descriptor that it was given or, for the length of the call, its path's.
// Without one "failed to open '%s'" is recorded in the function's category, before the work and again after it:
// what the work says about a descriptor of -1 only follows from that.
class ActiveDescriptor {
  public:
    ActiveDescriptor(int given, const char *path, uint32_t category) noexcept;
    ActiveDescriptor(const ActiveDescriptor &) = delete;
    ActiveDescriptor &operator=(const ActiveDescriptor &) = delete;
    ~ActiveDescriptor();

    int get() const noexcept { return active_; }
    // Closes what was opened and goes on with another descriptor, which is closed in its place.
    void replace(int opened) noexcept;

  private:
    void record_failure() const noexcept;

    int given_;
    int active_;
    const char *path_;
    uint32_t category_;
};

} // namespace torvane

#endif
