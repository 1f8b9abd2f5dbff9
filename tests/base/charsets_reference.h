// The conversions, the measures and the wildcard rule once more, as plainly as they can be said, and whether the
// library agrees: what the fast code is held against, in the tests and in the fuzz targets.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/LCharsets.h"

namespace reference {

inline size_t sequenceLength(char first) {
    const auto byte = static_cast<uint8_t>(first);
    return byte < 0xC0 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : byte < 0xF8 ? 4 : byte < 0xFC ? 5 : 6;
}

// The well-formed sequences, byte by byte, as the Unicode standard tabulates them; all further bytes are 80 to BF.
struct Row {
    uint8_t firstLow, firstHigh, secondLow, secondHigh;
};
constexpr Row rows[] = {{0xC2, 0xDF, 0x80, 0xBF}, {0xE0, 0xE0, 0xA0, 0xBF}, {0xE1, 0xEC, 0x80, 0xBF},
                        {0xED, 0xED, 0x80, 0x9F}, {0xEE, 0xEF, 0x80, 0xBF}, {0xF0, 0xF0, 0x90, 0xBF},
                        {0xF1, 0xF3, 0x80, 0xBF}, {0xF4, 0xF4, 0x80, 0x8F}};

inline bool isWellFormed(std::string_view sequence) {
    const auto at = [&](size_t i) { return static_cast<uint8_t>(sequence[i]); };
    if (at(0) < 0x80) return true;
    for (const Row& row : rows) {
        if (at(0) < row.firstLow || at(0) > row.firstHigh) continue;
        bool good = at(1) >= row.secondLow && at(1) <= row.secondHigh;
        for (size_t i = 2; i < sequence.size(); ++i) good = good && at(i) >= 0x80 && at(i) <= 0xBF;
        return good;
    }
    return false;
}

struct Decoded {
    std::u32string text;
    unsigned long result;
    bool operator==(const Decoded&) const = default;
};

inline Decoded decode(const std::string& in, unsigned long limit) {
    Decoded decoded{};
    for (size_t at = 0; at < in.size();) {
        const size_t length = sequenceLength(in[at]);
        if (at + length >= limit) {
            decoded.result = 1;
            break;
        }
        if (at + length > in.size() || !isWellFormed(std::string_view(in).substr(at, length))) {
            decoded.result = 2;
            break;
        }
        char32_t value = length == 1 ? static_cast<uint8_t>(in[at]) : static_cast<uint8_t>(in[at]) & (0x7F >> length);
        for (size_t i = 1; i < length; ++i) value = value << 6 | (static_cast<uint8_t>(in[at + i]) & 0x3F);
        decoded.text += value;
        at += length;
    }
    return decoded;
}

struct Encoded {
    std::string text;
    unsigned long result;
    bool operator==(const Encoded&) const = default;
};

template <typename T>
Encoded encode(const std::basic_string<T>& in, unsigned long size) {
    Encoded encoded{};
    for (const T unit : in) {
        auto value = static_cast<uint32_t>(unit);
        const bool replaced = value > 0x10FFFF;
        if (replaced) value = 0xFFFD;
        std::string bytes;
        if (value < 0x80) {
            bytes += static_cast<char>(value);
        } else {
            const int trailing = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
            bytes += static_cast<char>((0xFF80 >> trailing & 0xFF) | value >> (6 * trailing));
            for (int i = trailing - 1; i >= 0; --i) bytes += static_cast<char>(0x80 | (value >> (6 * i) & 0x3F));
        }
        if (encoded.text.size() + bytes.size() >= size) return {encoded.text, 1};
        if (replaced) encoded.result = 2;
        encoded.text += bytes;
    }
    return encoded;
}

// Where each character begins, and the end of the text.
inline std::vector<size_t> boundaries(const std::string& text) {
    std::vector<size_t> places{0};
    while (places.back() < text.size()) {
        places.push_back(std::min(places.back() + sequenceLength(text[places.back()]), text.size()));
    }
    return places;
}

inline size_t copied(const std::string& text, size_t size) {
    size_t at = 0;
    while (at < text.size() && at + sequenceLength(text[at]) <= size - 1) at += sequenceLength(text[at]);
    return std::min(at, text.size());
}

inline size_t charsBefore(const std::string& text, size_t byteIndex) {
    const std::vector<size_t> places = boundaries(text);
    return static_cast<size_t>(
        std::count_if(places.begin(), places.end() - 1, [&](size_t p) { return p < byteIndex; }));
}

// Whether the library gives the same, into buffers of exactly `size` elements.
inline bool decodes(const char* in, unsigned long size, wchar_t* wide, unsigned short* units) {
    const Decoded expected = decode(in, size);
    bool same = LCopyUTF32FromUTF8Native(wide, in, size) == expected.result &&
                LCopyUnicodeFromUTF8(units, in, size) == expected.result;
    for (size_t i = 0; i <= expected.text.size(); ++i) {  // the terminators too
        const char32_t value = expected.text.c_str()[i];
        same = same && static_cast<char32_t>(wide[i]) == value && units[i] == static_cast<unsigned short>(value);
    }
    return same;
}

inline bool measures(const char* in, unsigned long size, char* out) {
    const std::string text = in;
    const size_t bytes = copied(text, size);
    const std::vector<size_t> places = boundaries(text);
    return utf8strlcpy(out, in, size) == bytes && out == text.substr(0, bytes) && utf8strlen(in) == places.size() - 1 &&
           LCharsetsUTF8ByteIndexToCharIndex(in, size) == charsBefore(text, size) &&
           LCharsetsUTF8CharIndexToByteIndex(in, size) == places[std::min<size_t>(size, places.size() - 1)];
}

template <typename T>
bool encodes(const T* in, unsigned long size, char* out, unsigned long (*function)(char*, const T*, unsigned long)) {
    const unsigned long result = function(out, in, size);
    return encode(std::basic_string<T>(in), size) == Encoded{out, result};
}

// The wildcard rule, every start of every '*' tried, over a table filled from the ends.
inline bool isMatch(const std::string& pattern, const std::string& name) {
    const size_t width = name.size() + 1;
    std::vector<char> table((pattern.size() + 1) * width);
    for (size_t p = pattern.size() + 1; p-- > 0;) {
        bool later = false;  // whether the rest behind this '*' matches from the current or a later start
        for (size_t n = width; n-- > 0;) {
            const bool inName = n < name.size();
            bool match;
            if (p == pattern.size()) {
                match = !inName;
            } else if (!inName) {
                match = pattern.find_first_not_of('*', p) == std::string::npos;
            } else {
                later = later || table[(p + 1) * width + n];
                if (pattern[p] == name[n] || pattern[p] == '?')
                    match = table[(p + 1) * width + n + 1];
                else
                    match = pattern[p] == '*' && (p + 1 == pattern.size() || later);
            }
            table[p * width + n] = match;
        }
    }
    return table[0];
}

}  // namespace reference
