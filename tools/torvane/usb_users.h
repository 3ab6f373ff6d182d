// Who uses a disk: what would break if it went away.
#pragma once

#include <string>
#include <vector>

namespace tool {

// "sdb1 is mounted on /mnt", "sdb is part of md0" ... for a disk's kernel name and its partitions.
std::vector<std::string> users_of(const std::string &disk);

} // namespace tool
