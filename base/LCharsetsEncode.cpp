#include <bit>
#include <cwchar>

#include "base/LCharsets.h"
#include "base/LCharsetsBlocks.h"
#include "base/LCharsetsSequence.h"

using namespace LCharsetsDetail;

namespace {

size_t boundedLength(const wchar_t* text, size_t most) {
    return wcsnlen(text, most);
}

size_t boundedLength(const unsigned short* text, size_t most) {
    size_t length = 0;
    while (length < most && text[length] != 0) ++length;
    return length;
}

constexpr char trailing(uint32_t value) {
    return static_cast<char>(0x80 | (value & 0x3F));
}

constexpr char first(uint32_t value, size_t length) {
    return static_cast<char>(firstByteMark[length] | value);
}

/// Writes one character of at most `lastCharacter`; null when it does not fit before `end`.
inline char* putCharacter(char* out, const char* end, uint32_t value) {
    const size_t room = static_cast<size_t>(end - out);
    if (value < 0x80) {
        if (room < 1) return nullptr;
        out[0] = static_cast<char>(value);
        return out + 1;
    }
    if (value < 0x800) {
        if (room < 2) return nullptr;
        out[0] = first(value >> 6, 2);
        out[1] = trailing(value);
        return out + 2;
    }
    if (value < 0x10000) {
        if (room < 3) return nullptr;
        out[0] = first(value >> 12, 3);
        out[1] = trailing(value >> 6);
        out[2] = trailing(value);
        return out + 3;
    }
    if (room < 4) return nullptr;
    out[0] = first(value >> 18, 4);
    out[1] = trailing(value >> 12);
    out[2] = trailing(value >> 6);
    out[3] = trailing(value);
    return out + 4;
}

/// How many values go one by one before the next try in blocks.
constexpr int valuesBetweenBlocks = 32;

/// `in` has `count` values and `out` room for `room` bytes and a terminator.
template <typename TIn>
unsigned long encodeCounted(char* out, size_t room, const TIn* in, size_t count) {
    const TIn* const end = in + count;
    const char* const outEnd = out + room;
    unsigned long result = kLCharsetsWhole;
    while (in != end) {
        const size_t left = static_cast<size_t>(end - in);
        const size_t space = static_cast<size_t>(outEnd - out);
        const Place<TIn, char> place = encodeBlocks(Place<TIn, char>{in, out}, left < space ? left : space);
        in = place.in;
        out = place.out;
        for (int i = 0; i < valuesBetweenBlocks && in != end; ++i, ++in) {
            const uint32_t value = static_cast<uint32_t>(*in);
            const bool known = value <= lastCharacter;
            char* const next = putCharacter(out, outEnd, known ? value : replacementCharacter);
            if (next == nullptr) {
                *out = '\0';
                return kLCharsetsCut;
            }
            if (!known) result = kLCharsetsIllFormed;
            out = next;
        }
    }
    *out = '\0';
    return result;
}

template <typename TIn>
unsigned long encode(char* out, const TIn* in, unsigned long size) {
    if (size == 0) return kLCharsetsCut;
    return encodeCounted(out, size - 1, in, boundedLength(in, size));
}

template <typename TOut, typename TIn>
TOut* copyUnits(TOut* out, const TIn* in, unsigned long size) {
    if (size == 0) return out;
    size_t length = 0;
    for (; length < size - 1 && in[length] != 0; ++length) out[length] = static_cast<TOut>(in[length]);
    out[length] = 0;
    return out;
}

constexpr unsigned short bigEndian(unsigned short unit) {
    if constexpr (std::endian::native == std::endian::big) return unit;
    return static_cast<unsigned short>((unit << 8) | (unit >> 8));
}

}  // namespace

unsigned long LCopyUTF8FromUTF32Native(char* out, const wchar_t* in, unsigned long size) {
    return encode(out, in, size);
}

unsigned long LCopyUTF8FromUTF32(char* out, const wchar_t* in, unsigned long size) {
    return encode(out, in, size);
}

unsigned long LCopyUTF8FromUnicode(char* out, const unsigned short* in, unsigned long size) {
    return encode(out, in, size);
}

unsigned long LCopyUTF8FromUnicode(char* out, const unsigned short* in) {
    return encode(out, in, 260);
}

unsigned short* LCopyUnicodeFromUTF32(unsigned short* out, const wchar_t* in, unsigned long size) {
    return copyUnits(out, in, size);
}

wchar_t* LCopyUTF32FromUnicode(wchar_t* out, const unsigned short* in, unsigned long size) {
    return copyUnits(out, in, size);
}

unsigned long LCopyToBigEndianUnicode(unsigned short* out, const unsigned short* in, unsigned long count,
                                      bool terminate) {
    unsigned long length = 0;
    for (; length < count && in[length] != 0; ++length) out[length] = bigEndian(in[length]);
    if (terminate) {
        out[length] = 0;
        return length;
    }
    while (length < count) out[length++] = bigEndian(0x0020);
    return count;
}
