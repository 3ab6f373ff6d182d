// The fuzzer's bytes as the stream that a parser reads.
#ifndef TORVANE_FUZZ_STREAM_H
#define TORVANE_FUZZ_STREAM_H

#include "foundation/owners.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace torvane::fuzz {

inline File open_bytes(const uint8_t *data, size_t size) noexcept {
    // "r" only reads, so the const goes safely.
    return File(fmemopen(const_cast<uint8_t *>(data), size, "r"));
}

// A finding of our own: what the parser left breaks its contract.
inline void require(bool holds) noexcept {
    if (!holds) std::abort();
}

} // namespace torvane::fuzz

#endif
