// What the long-string conversions share: the room for the worst case, and the length of what came out.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

#include "base/LString.h"
#include "base/LStringUtil.h"

namespace LCharsetsDetail {

constexpr unsigned long longestUtf8 = 6;  // Bytes reserved for each character of UTF-8 output

/// Reserves `count` times `each` characters and the terminator's place; returns how many that is.
template <typename T>
unsigned long roomFor(LStringLongTemplate<T>& out, unsigned long count, unsigned long each) {
    const unsigned long most = std::numeric_limits<uint32_t>::max();
    if (count > (most - 1) / each) throw std::bad_alloc();
    out.GrowToSize(count * each + 1);
    return count * each + 1;
}

inline unsigned long takeLength(LStringLongTemplate<char>& out) {
    out.length = static_cast<uint32_t>(std::strlen(out.buffer));
    return out.length;
}

inline unsigned long takeLength(LStringLongTemplate<unsigned short>& out) {
    out.length = static_cast<uint32_t>(lstrlen(out.buffer));
    return out.length;
}

template <typename T>
const T* textOf(const LStringLongTemplate<T>& in) {
    static constexpr T empty = 0;
    return in.buffer == nullptr ? &empty : in.buffer;
}

}  // namespace LCharsetsDetail
