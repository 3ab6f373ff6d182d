#include "foundation/interruptions.h"
#include "foundation/owners.h"
#include "torvane.h"

#include <cerrno>
#include <climits>
#include <cstring>

using namespace torvane;

namespace {

constexpr size_t kFirstLineSize = 100;
constexpr size_t kLargestLineSize = INT_MAX; // what fgets() takes and the result can tell

// fgets() into the rest of a buffer: the length of what is there then, 0 at the end of the file, -1 on error. An
// interrupted fgets() forgets how much it has put there. No line end is among it, so the first of those that
// stood there before tells.
int read_piece(char *rest, int size, FILE *stream) noexcept {
    Interruptions interruptions;
    int kept = 0;
    for (;;) {
        std::memset(rest + kept, '\n', static_cast<size_t>(size - kept));
        errno = 0;
        if (std::fgets(rest + kept, size - kept, stream) != nullptr) {
            return kept + static_cast<int>(std::strlen(rest + kept));
        }
        if (std::feof(stream) == 0 && !interruptions.again()) return -1;
        kept += static_cast<int>(static_cast<char *>(std::memchr(rest + kept, '\n', static_cast<size_t>(size - kept))) -
                                 (rest + kept));
        rest[kept] = '\0';
        if (std::feof(stream) != 0) return kept;
        std::clearerr(stream);
    }
}

// The power of 1024 that a unit's first letter stands for. Kept: P is the fourth and T is unknown, so "1 TB" is one
// byte and "1 PB" what others call a TB.
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
    for (;;) {
        const int length = read_piece(buffer.get() + used, static_cast<int>(size - used), stream);
        if (length < 0) return -1;
        used += static_cast<size_t>(length);
        if (length == 0 || buffer.get()[used - 1] == '\n' || used < size - 1) break;
        size *= 2;
        if (size > kLargestLineSize || !enlarge(buffer, size)) return -1;
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
