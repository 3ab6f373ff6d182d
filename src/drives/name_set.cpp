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

size_t NameSet::slot_of(const char *name) const noexcept {
    size_t slot = hash(name) & mask_;
    while (slots_.get()[slot] != nullptr && !equal(slots_.get()[slot], name)) slot = (slot + 1) & mask_;
    return slot;
}

bool NameSet::add(const char *name) noexcept {
    const char *&place = slots_.get()[slot_of(name)];
    if (place != nullptr) return false;
    place = name;
    return true;
}

const char *NameSet::find(const char *name) const noexcept { return slots_.get()[slot_of(name)]; }

} // namespace torvane
