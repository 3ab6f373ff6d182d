// Owners: every descriptor, stream, directory and heap block is held by one of these from the line that
// obtains it, and leaves by release() when it goes to the caller.
#ifndef TORVANE_FOUNDATION_OWNERS_H
#define TORVANE_FOUNDATION_OWNERS_H

#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace torvane {

// A deleter that calls one function and drops its result.
template <auto Function> struct Calls {
    template <class T> void operator()(T *pointer) const noexcept { Function(pointer); }
};

// The C library's functions carry attributes that a template argument would lose; these wrappers do not.
inline void free_block(void *block) noexcept { std::free(block); }
inline void close_stream(std::FILE *stream) noexcept { std::fclose(stream); }
inline void close_directory(DIR *directory) noexcept { closedir(directory); }

using CString = std::unique_ptr<char, Calls<&free_block>>;
using File = std::unique_ptr<std::FILE, Calls<&close_stream>>;
template <class T> using Block = std::unique_ptr<T, Calls<&free_block>>;

// A file descriptor, closed when its owner ends; anything below 0 is none.
class Descriptor {
  public:
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset();
        fd_ = other.release();
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    void reset() noexcept {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }
    int release() noexcept {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_;
};

// A zero-filled record on the heap, for callers to free; null without memory.
template <class T> T *allocate() noexcept { return static_cast<T *>(std::calloc(1, sizeof(T))); }

// Gives a record's field a new string, or none; the old one goes.
inline void replace(char *&field, CString text) noexcept {
    const CString old(field);
    field = text.release();
}

// Makes a heap buffer larger, what is in it kept. False leaves it as it was.
inline bool enlarge(CString &buffer, size_t size) noexcept {
    void *larger = std::realloc(buffer.get(), size);
    if (larger == nullptr) return false;
    (void)buffer.release();
    buffer.reset(static_cast<char *>(larger));
    return true;
}

// Grows a heap array by `extra` zero-filled entries. False leaves array and count as they were.
template <class T> bool grow(T *&array, uint32_t &count, uint32_t extra = 1) noexcept {
    if (extra == 0) return true; // realloc() to no entries would free the array
    if (extra > UINT32_MAX - count) return false;
    void *grown = std::realloc(static_cast<void *>(array), (size_t{count} + extra) * sizeof(T));
    if (grown == nullptr) return false;
    array = static_cast<T *>(grown);
    for (uint32_t i = 0; i < extra; ++i) array[count + i] = T{};
    count += extra;
    return true;
}

} // namespace torvane

#endif
