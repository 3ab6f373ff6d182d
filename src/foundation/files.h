// Descriptors that a device function was given or has opened for itself.
#ifndef TORVANE_FOUNDATION_FILES_H
#define TORVANE_FOUNDATION_FILES_H

namespace torvane {

// close_valid_fd() for the library's own functions: without memory for its stream it still closes, since
// nobody else knows of the descriptor.
int close_active_fd(int given, int active) noexcept;

} // namespace torvane

#endif
