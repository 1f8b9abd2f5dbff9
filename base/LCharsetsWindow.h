// Tables for the vector decoder: how to spread the bytes of a few neighbouring UTF-8 sequences over lanes.
//
// A window is twelve bytes that begin with a sequence, and its key the twelve bits that say which of them end one. The
// window gives six sequences of one or two bytes each, else four of up to three, else three of up to four; always whole
// ones, since the text is known to be well formed. In each lane the last byte of a sequence comes lowest.
#pragma once

#include <cstddef>
#include <cstdint>

namespace LCharsetsDetail {

constexpr unsigned windowBytes = 12;
constexpr size_t sixPatterns = 64;    // 2 to the 6th
constexpr size_t fourPatterns = 81;   // 3 to the 4th
constexpr size_t threePatterns = 64;  // 4 to the 3rd

struct Window {
    uint8_t pattern;  ///< Which row of `shuffles`; the six come first, then the four, then the three
    uint8_t bytes;    ///< How many bytes its sequences have together
};

struct WindowTables {
    alignas(16) uint8_t shuffles[sixPatterns + fourPatterns + threePatterns][16];
    Window windows[1u << windowBytes];
};

/// Fills one row: `count` sequences in lanes of `laneBytes`, their lengths (less one) the digits of `digits`.
constexpr void fillShuffle(uint8_t (&row)[16], unsigned digits, unsigned base, unsigned count, unsigned laneBytes) {
    for (uint8_t& byte : row) byte = 0x80;  // Gives zero
    unsigned end = 0;
    for (unsigned lane = 0; lane < count; ++lane) {
        const unsigned length = digits % base + 1;
        digits /= base;
        end += length;
        for (unsigned i = 0; i < length; ++i) row[lane * laneBytes + i] = static_cast<uint8_t>(end - 1 - i);
    }
}

/// Whether the first `count` sequences of a key have at most `base` bytes each; if so, their lengths as digits.
constexpr bool readKey(unsigned key, unsigned base, unsigned count, unsigned& digits, unsigned& bytes) {
    digits = 0;
    bytes = 0;
    unsigned weight = 1;
    for (unsigned n = 0; n < count; ++n) {
        unsigned length = 1;
        while (length <= base && (key >> (bytes + length - 1) & 1) == 0) ++length;
        if (length > base || bytes + length > windowBytes) return false;
        digits += (length - 1) * weight;
        weight *= base;
        bytes += length;
    }
    return true;
}

constexpr Window readWindow(unsigned key) {
    unsigned digits = 0;
    unsigned bytes = 0;
    size_t first = 0;
    if (!readKey(key, 2, 6, digits, bytes)) {
        first = sixPatterns;
        if (!readKey(key, 3, 4, digits, bytes)) {
            first = sixPatterns + fourPatterns;
            if (!readKey(key, 4, 3, digits, bytes)) return {0, windowBytes};  // The key of no well-formed text
        }
    }
    return {static_cast<uint8_t>(first + digits), static_cast<uint8_t>(bytes)};
}

constexpr WindowTables makeWindowTables() {
    WindowTables tables{};
    uint8_t(*row)[16] = tables.shuffles;
    for (unsigned i = 0; i < sixPatterns; ++i) fillShuffle(*row++, i, 2, 6, 2);
    for (unsigned i = 0; i < fourPatterns; ++i) fillShuffle(*row++, i, 3, 4, 4);
    for (unsigned i = 0; i < threePatterns; ++i) fillShuffle(*row++, i, 4, 3, 4);
    for (unsigned key = 0; key < 1u << windowBytes; ++key) tables.windows[key] = readWindow(key);
    return tables;
}

/// How to close the gaps between eight lanes of two bytes, by the eight bits that say which lanes are left out.
struct GatherTables {
    alignas(16) uint8_t rows[256][16];
    uint8_t omitted[256];  ///< How many lanes are left out
};

constexpr GatherTables makeGatherTables() {
    GatherTables tables{};
    for (unsigned key = 0; key < 256; ++key) {
        unsigned kept = 0;
        for (unsigned lane = 0; lane < 8; ++lane) {
            if ((key >> lane & 1) != 0) continue;
            tables.rows[key][2 * kept] = static_cast<uint8_t>(2 * lane);
            tables.rows[key][2 * kept + 1] = static_cast<uint8_t>(2 * lane + 1);
            ++kept;
        }
        for (unsigned i = 2 * kept; i < 16; ++i) tables.rows[key][i] = 0x80;  // Gives zero
        tables.omitted[key] = static_cast<uint8_t>(8 - kept);
    }
    return tables;
}

}  // namespace LCharsetsDetail
