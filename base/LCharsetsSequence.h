// What the sources of LCharsets know about UTF-8 sequences, one at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace LCharsetsDetail {

/// Marks of the first byte, by the length of the sequence.
constexpr uint8_t firstByteMark[7] = {0x00, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

/// What the sum of a sequence's bytes, each shifted to its place, has above the character, by the number of trailing
/// bytes.
constexpr uint32_t offsetsFromUTF8[6] = {0x00000000, 0x00003080, 0x000E2080, 0x03C82080, 0xFA082080, 0x82082080};

/// Length by the first byte; a trailing byte met in first place is a sequence of one.
constexpr size_t sequenceLength(uint8_t first) {
    if (first < 0xC0) return 1;
    if (first < 0xE0) return 2;
    if (first < 0xF0) return 3;
    if (first < 0xF8) return 4;
    return first < 0xFC ? 5 : 6;
}

constexpr uint32_t replacementCharacter = 0xFFFD;
constexpr uint32_t lastCharacter = 0x10FFFF;

}  // namespace LCharsetsDetail
