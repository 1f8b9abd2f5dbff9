// What the sources of LFile share: the buffer's size, what separates, and the cut at its end.
#pragma once

#include <cstddef>
#include <cstring>

namespace LFileShared {

constexpr size_t bufferSize = 260;            // Every output buffer, the terminator's place included
constexpr size_t maxLength = bufferSize - 1;  // What fits in it

inline bool isSeparator(char c) {
    return c == '/' || c == '\\';
}

/// Puts `text` at `at`, at most `maxLength`, in an output buffer, cut where that ends, and terminates it. The
/// text may lie in the same buffer. Returns where it ends.
inline size_t copyCut(char* out, size_t at, const char* text) {
    const size_t length = strnlen(text, maxLength - at);
    std::memmove(out + at, text, length);
    out[at + length] = '\0';
    return at + length;
}

}  // namespace LFileShared
