// The name of the private directories that nodes are made in.
#ifndef TORVANE_REMOVABLE_TEMPORARY_DIRECTORY_H
#define TORVANE_REMOVABLE_TEMPORARY_DIRECTORY_H

namespace torvane {

// Made into a path by mkdtemp().
struct TemporaryPath {
    char text[sizeof "/tmp/torvane.XXXXXX"] = "/tmp/torvane.XXXXXX";
};

} // namespace torvane

#endif
