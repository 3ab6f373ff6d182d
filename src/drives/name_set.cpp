#include "drives/name_set.h"

#include "foundation/text.h"

namespace torvane {
namespace {

// FNV-1a, 64 bits.
size_t hash(const char *name) noexcept {
    size_t value = 0xcbf29ce484222325U;
    for (; *name != '\0'; ++name) value = (value ^ static_cast<unsigned char>(*name)) * 0x100000001b3U;
    return value;
}

} // namespace

bool NameSet::reserve(uint32_t count) noexcept {
    size_t size = 16;
    while (size < size_t{count} * 2) size *= 2;
    slots_.reset(static_cast<const char **>(std::calloc(size, sizeof(const char *))));
    mask_ = size - 1;
    return slots_ != nullptr;
}

bool NameSet::add(const char *name) noexcept {
    size_t slot = hash(name) & mask_;
    for (; slots_.get()[slot] != nullptr; slot = (slot + 1) & mask_) {
        if (equal(slots_.get()[slot], name)) return false;
    }
    slots_.get()[slot] = name;
    return true;
}

} // namespace torvane
