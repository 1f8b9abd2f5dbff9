#include <cstring>

#include "base/LCharsetsBlocks.h"

namespace LCharsetsDetail {
namespace {

constexpr size_t wordBytes = 8;

bool isAsciiWord(const uint8_t* text) {
    uint64_t word;
    std::memcpy(&word, text, wordBytes);
    return (word & 0x8080808080808080u) == 0;
}

template <typename TOut>
Place<uint8_t, TOut> decodeAscii(Place<uint8_t, TOut> place, const uint8_t* end) {
    while (static_cast<size_t>(end - place.in) >= wordBytes && isAsciiWord(place.in)) {
        for (size_t i = 0; i < wordBytes; ++i) place.out[i] = static_cast<TOut>(place.in[i]);
        place.in += wordBytes;
        place.out += wordBytes;
    }
    return place;
}

template <typename TIn>
Place<TIn, char> encodeAscii(Place<TIn, char> place, size_t count) {
    for (; count >= wordBytes; count -= wordBytes) {
        uint32_t all = 0;
        for (size_t i = 0; i < wordBytes; ++i) all |= static_cast<uint32_t>(place.in[i]);
        if (all >= 0x80) break;
        for (size_t i = 0; i < wordBytes; ++i) place.out[i] = static_cast<char>(place.in[i]);
        place.in += wordBytes;
        place.out += wordBytes;
    }
    return place;
}

}  // namespace

DecodePlace32 decodeBlocks(DecodePlace32 place, const uint8_t* end) {
    return decodeAscii(place, end);
}
DecodePlace16 decodeBlocks(DecodePlace16 place, const uint8_t* end) {
    return decodeAscii(place, end);
}
EncodePlace32 encodeBlocks(EncodePlace32 place, size_t count) {
    return encodeAscii(place, count);
}
EncodePlace16 encodeBlocks(EncodePlace16 place, size_t count) {
    return encodeAscii(place, count);
}

Measure measureBlocks(const uint8_t* text, size_t count, size_t most) {
    if (most < count) count = most;
    size_t length = 0;
    while (count - length >= wordBytes && isAsciiWord(text + length)) length += wordBytes;
    return {length, length};
}

}  // namespace LCharsetsDetail
