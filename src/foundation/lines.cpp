#include "foundation/owners.h"
#include "foundation/text.h"
#include "torvane.h"

#include <climits>
#include <cmath>
#include <cstring>

using namespace torvane;

namespace {

constexpr size_t kFirstLineSize = 100;
constexpr size_t kLargestLineSize = INT_MAX; // what fgets() takes and the result can tell

bool enlarge(CString &buffer, size_t size) noexcept {
    if (size > kLargestLineSize) return false;
    void *larger = std::realloc(buffer.get(), size);
    if (larger == nullptr) return false;
    (void)buffer.release();
    buffer.reset(static_cast<char *>(larger));
    return true;
}

// The power of 1024 that a unit's first letter stands for. P is the fourth and T is unknown: sizes that
// callers have stored were computed with this table.
double unit_factor(char letter) noexcept {
    constexpr double kKilo = 1024.0;
    switch (letter) {
    case 'K':
    case 'k': return kKilo;
    case 'M':
    case 'm': return kKilo * kKilo;
    case 'G':
    case 'g': return kKilo * kKilo * kKilo;
    case 'P':
    case 'p': return kKilo * kKilo * kKilo * kKilo;
    case 'E':
    case 'e': return kKilo * kKilo * kKilo * kKilo * kKilo;
    default: return 1.0;
    }
}

} // namespace

int get_line(char **line, FILE *stream) noexcept {
    if (line == nullptr) return -1;
    *line = nullptr;
    if (stream == nullptr) return -1;
    size_t size = kFirstLineSize;
    size_t used = 0;
    CString buffer(static_cast<char *>(std::malloc(size)));
    if (!buffer) return -1;
    buffer.get()[0] = '\0';
    for (;;) {
        char *rest = buffer.get() + used;
        if (std::fgets(rest, static_cast<int>(size - used), stream) == nullptr) {
            if (std::feof(stream) == 0) return -1;
            break;
        }
        used += std::strlen(rest);
        if (used == 0 || buffer.get()[used - 1] == '\n' || used < size - 1) break;
        size *= 2;
        if (!enlarge(buffer, size)) return -1;
    }
    *line = buffer.release();
    return static_cast<int>(used);
}

uint64_t get_bytes_from_str(const char *text) noexcept {
    if (text == nullptr) return 0;
    float number = 0.0F;
    char unit[100] = "";
    (void)std::sscanf(text, "%f %99s", &number, unit);
    const float bytes = number * static_cast<float>(unit_factor(unit[0]));
    constexpr float kTooMany = 18446744073709551616.0F; // 2^64
    return bytes >= 0.0F && bytes < kTooMany ? static_cast<uint64_t>(bytes) : 0;
}
