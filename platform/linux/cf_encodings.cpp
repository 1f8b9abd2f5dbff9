#include "cf_encodings.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace cf_encodings {

namespace {

// Windows Latin 1 at 0x80 to 0x9F. The five places that its makers left empty stand for the control character of the
// same number, as decoders commonly have it, so that no byte is refused and every text comes back as it was.
constexpr std::array<char16_t, 32> kWindowsLatin1High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

bool isSurrogate(char32_t value) {
    return value >= 0xD800 && value <= 0xDFFF;
}

void appendCodePoint(char32_t value, std::u16string& out) {
    if (value < 0x10000) {
        out.push_back(static_cast<char16_t>(value));
        return;
    }
    value -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (value >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (value & 0x3FF)));
}

// The number of bytes of the sequence that starts with `lead`, and the bits that it contributes; 0 for no lead byte.
size_t sequenceLength(unsigned char lead, char32_t& bits) {
    if (lead < 0x80) return bits = lead, 1;
    if (lead >= 0xC2 && lead <= 0xDF) return bits = lead & 0x1FU, 2;
    if (lead >= 0xE0 && lead <= 0xEF) return bits = lead & 0x0FU, 3;
    if (lead >= 0xF0 && lead <= 0xF4) return bits = lead & 0x07U, 4;
    return 0;
}

bool decodeUtf8(std::string_view bytes, std::u16string& out) {
    constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
    for (size_t at = 0; at < bytes.size();) {
        char32_t value = 0;
        const size_t length = sequenceLength(static_cast<unsigned char>(bytes[at]), value);
        if (length == 0 || length > bytes.size() - at) return false;
        for (size_t i = 1; i < length; ++i) {
            const auto byte = static_cast<unsigned char>(bytes[at + i]);
            if ((byte & 0xC0) != 0x80) return false;
            value = (value << 6) | (byte & 0x3FU);
        }
        if (value < kSmallest[length] || value > 0x10FFFF || isSurrogate(value)) return false;
        appendCodePoint(value, out);
        at += length;
    }
    return true;
}

bool decodeUtf16(std::string_view bytes, std::u16string& out) {
    if (bytes.size() % sizeof(char16_t) != 0) return false;
    out.resize(bytes.size() / sizeof(char16_t));
    if (!bytes.empty()) std::memcpy(out.data(), bytes.data(), bytes.size());
    return true;
}

char16_t windowsLatin1ToUnit(unsigned char byte) {
    return byte >= 0x80 && byte < 0xA0 ? kWindowsLatin1High[byte - 0x80U] : byte;
}

// -1 when Windows Latin 1 has no such character.
int unitToWindowsLatin1(char16_t unit) {
    if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) return unit;
    const auto* found = std::find(kWindowsLatin1High.begin(), kWindowsLatin1High.end(), unit);
    return found == kWindowsLatin1High.end() ? -1 : static_cast<int>(found - kWindowsLatin1High.begin()) + 0x80;
}

int unitToByte(char16_t unit, CFStringEncoding encoding) {
    if (encoding == kCFStringEncodingWindowsLatin1) return unitToWindowsLatin1(unit);
    return unit <= 0xFF ? unit : -1;
}

// The code point at `at`, which moves past it; false at an unpaired surrogate.
bool nextCodePoint(std::u16string_view units, size_t& at, char32_t& value) {
    value = units[at++];
    if (!isSurrogate(value)) return true;
    if (value >= 0xDC00 || at == units.size() || (units[at] & 0xFC00) != 0xDC00) return false;
    value = 0x10000 + ((value - 0xD800) << 10) + (units[at++] - 0xDC00U);
    return true;
}

CFIndex utf8Size(std::u16string_view units) {
    CFIndex size = 0;
    for (size_t at = 0; at < units.size();) {
        char32_t value = 0;
        if (!nextCodePoint(units, at, value)) return -1;
        size += value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
    }
    return size;
}

void encodeUtf8(std::u16string_view units, char* out) {
    const auto tail = [](char32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    for (size_t at = 0; at < units.size();) {
        char32_t value = 0;
        if (!nextCodePoint(units, at, value)) return;
        if (value < 0x80) {
            *out++ = static_cast<char>(value);
            continue;
        }
        if (value < 0x800) {
            *out++ = static_cast<char>(0xC0 | (value >> 6));
        } else if (value < 0x10000) {
            *out++ = static_cast<char>(0xE0 | (value >> 12));
            *out++ = tail(value >> 6);
        } else {
            *out++ = static_cast<char>(0xF0 | (value >> 18));
            *out++ = tail(value >> 12);
            *out++ = tail(value >> 6);
        }
        *out++ = tail(value);
    }
}

}  // namespace

bool decode(std::string_view bytes, CFStringEncoding encoding, std::u16string& out) {
    out.reserve(bytes.size());
    switch (encoding) {
        case kCFStringEncodingUTF8:
            return decodeUtf8(bytes, out);
        case kCFStringEncodingUnicode:
            return decodeUtf16(bytes, out);
        case kCFStringEncodingISOLatin1:
            for (const char byte : bytes) out.push_back(static_cast<unsigned char>(byte));
            return true;
        case kCFStringEncodingWindowsLatin1:
            for (const char byte : bytes) out.push_back(windowsLatin1ToUnit(static_cast<unsigned char>(byte)));
            return true;
        default:
            return false;
    }
}

CFIndex encodedSize(std::u16string_view units, CFStringEncoding encoding) {
    switch (encoding) {
        case kCFStringEncodingUTF8:
            return utf8Size(units);
        case kCFStringEncodingUnicode:
            return static_cast<CFIndex>(units.size() * sizeof(char16_t));
        case kCFStringEncodingISOLatin1:
        case kCFStringEncodingWindowsLatin1:
            for (const char16_t unit : units) {
                if (unitToByte(unit, encoding) < 0) return -1;
            }
            return static_cast<CFIndex>(units.size());
        default:
            return -1;
    }
}

void encode(std::u16string_view units, CFStringEncoding encoding, char* out) {
    if (encoding == kCFStringEncodingUTF8) {
        encodeUtf8(units, out);
    } else if (encoding == kCFStringEncodingUnicode) {
        if (!units.empty()) std::memcpy(out, units.data(), units.size() * sizeof(char16_t));
    } else {
        for (const char16_t unit : units) *out++ = static_cast<char>(unitToByte(unit, encoding));
    }
}

}  // namespace cf_encodings
