#include "inventory/raid/model.h"

#include <array>

namespace inventory::raid {

const char *name_of(Role role) {
    constexpr std::array<const char *, 8> kNames{"unknown", "member", "spare",  "unassigned",
                                                 "foreign", "jbod",   "failed", "missing"};
    return kNames.at(static_cast<std::size_t>(role));
}

} // namespace inventory::raid
