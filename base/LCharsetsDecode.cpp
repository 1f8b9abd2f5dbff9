#include <cstring>

#include "base/LCharsets.h"
#include "base/LCharsetsBlocks.h"
#include "base/LCharsetsSequence.h"

using namespace LCharsetsDetail;

namespace {

constexpr bool isTrailing(uint32_t byte) {
    return (byte & 0xC0) == 0x80;
}

/// Takes one sequence that lies wholly before `end`; false, with the place unchanged, when it is cut or ill-formed.
template <typename TOut>
inline bool takeSequence(Place<uint8_t, TOut>& place, const uint8_t* end) {
    const uint8_t* const in = place.in;
    const size_t left = static_cast<size_t>(end - in);
    if (left == 0) return false;
    uint32_t value = in[0];
    size_t length = 1;
    if (value < 0x80) {
        // itself
    } else if (value >= 0xE0 && value < 0xF0) {
        if (left < 3 || !isTrailing(in[1]) || !isTrailing(in[2])) return false;
        value = (value << 12) + (uint32_t{in[1]} << 6) + in[2] - offsetsFromUTF8[2];
        if (value < 0x800 || (value >= 0xD800 && value < 0xE000)) return false;
        length = 3;
    } else if (value >= 0xC2 && value < 0xE0) {
        if (left < 2 || !isTrailing(in[1])) return false;
        value = (value << 6) + in[1] - offsetsFromUTF8[1];
        length = 2;
    } else if (value >= 0xF0 && value < 0xF5) {
        if (left < 4 || !isTrailing(in[1]) || !isTrailing(in[2]) || !isTrailing(in[3])) return false;
        value = (value << 18) + (uint32_t{in[1]} << 12) + (uint32_t{in[2]} << 6) + in[3] - offsetsFromUTF8[3];
        if (value < 0x10000 || value > lastCharacter) return false;
        length = 4;
    } else {
        return false;
    }
    *place.out++ = static_cast<TOut>(value);
    place.in += length;
    return true;
}

/// How many sequences go one by one before the next try in blocks.
constexpr int sequencesBetweenBlocks = 32;

/// What the blocks did not take.
template <typename TOut>
Place<uint8_t, TOut> decodeRest(Place<uint8_t, TOut> place, const uint8_t* end) {
    for (;;) {
        for (int i = 0; i < sequencesBetweenBlocks; ++i) {
            if (!takeSequence(place, end)) return place;
        }
        place = decodeBlocks(place, end);
    }
}

/// Goes on at `place` to `end`, behind which the limit leaves `more` bytes.
template <typename TOut>
__attribute__((noinline)) unsigned long decodeOn(const uint8_t* end, size_t more, Place<uint8_t, TOut> place) {
    const auto [stop, out] = decodeRest(place, end);
    *out = 0;
    if (*stop == 0) return kLCharsetsWhole;
    return sequenceLength(*stop) > static_cast<size_t>(end - stop) + more ? kLCharsetsCut : kLCharsetsIllFormed;
}

/// Most texts are short, fit, and are taken in blocks: whatever they do not need is kept apart.
template <typename TOut>
inline unsigned long decode(TOut* out, const char* in, unsigned long limit) {
    const uint8_t* const text = reinterpret_cast<const uint8_t*>(in);
    const uint8_t* end = static_cast<const uint8_t*>(std::memchr(in, 0, limit));
    if (end == nullptr) {
        if (limit == 0) return kLCharsetsCut;
        end = text + (limit - 1);
    }
    const Place<uint8_t, TOut> place = decodeBlocks(Place<uint8_t, TOut>{text, out}, end);
    if (place.in != end || *end != 0) return decodeOn(end, limit - 1 - static_cast<size_t>(end - text), place);
    *place.out = 0;
    return kLCharsetsWhole;
}

}  // namespace

unsigned long LCopyUTF32FromUTF8Native(wchar_t* out, const char* in, unsigned long limit) {
    return decode(out, in, limit);
}

unsigned long LCopyUTF32FromUTF8(wchar_t* out, const char* in, unsigned long limit) {
    return decode(out, in, limit);
}

unsigned long LCopyUnicodeFromUTF8(unsigned short* out, const char* in, unsigned long size) {
    return decode(out, in, size);
}

unsigned long LCopyUnicodeFromUTF8(unsigned short* out, const char* in) {
    return decode(out, in, 260);
}
