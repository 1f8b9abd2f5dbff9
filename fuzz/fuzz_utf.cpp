// UTF-8 decoded, measured and cut, and the rest of the input encoded as UTF-32 and UTF-16, into buffers of exactly the
// promised size and with the results of the plain formulation. The first two bytes are that size.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/LCharsets.h"
#include "tests/base/charsets_reference.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

void CheckDecoding(const std::string& text, unsigned long limit) {
    const reference::Decoded expected = reference::decode(text, limit);
    const std::unique_ptr<wchar_t[]> wide(new wchar_t[limit]);
    Require(LCopyUTF32FromUTF8Native(wide.get(), text.c_str(), limit) == expected.result);
    const std::unique_ptr<unsigned short[]> units(new unsigned short[limit]);
    Require(LCopyUnicodeFromUTF8(units.get(), text.c_str(), limit) == expected.result);
    for (size_t i = 0; i <= expected.text.size(); ++i) {
        const char32_t value = i < expected.text.size() ? expected.text[i] : 0;
        Require(static_cast<char32_t>(wide[i]) == value && units[i] == static_cast<unsigned short>(value));
    }
}

void CheckMeasures(const std::string& text, unsigned long size) {
    const std::unique_ptr<char[]> out(new char[size]);
    const size_t copied = reference::copied(text, size);
    Require(utf8strlcpy(out.get(), text.c_str(), size) == copied && text.substr(0, copied) == out.get());
    const std::vector<size_t> places = reference::boundaries(text);
    Require(utf8strlen(text.c_str()) == places.size() - 1);
    Require(LCharsetsUTF8ByteIndexToCharIndex(text.c_str(), size) == reference::charsBefore(text, size));
    Require(LCharsetsUTF8CharIndexToByteIndex(text.c_str(), size) == places[std::min<size_t>(size, places.size() - 1)]);
}

template <typename T>
void CheckEncoding(const uint8_t* data, size_t bytes, unsigned long size,
                   unsigned long (*encode)(char*, const T*, unsigned long)) {
    std::basic_string<T> text(bytes / sizeof(T), 0);
    std::memcpy(text.data(), data, text.size() * sizeof(T));
    text.resize(std::char_traits<T>::length(text.c_str()));
    const std::unique_ptr<char[]> out(new char[size]);
    const unsigned long result = encode(out.get(), text.c_str(), size);
    Require(reference::encode(text, size) == reference::Encoded{out.get(), result});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const unsigned long limit = 1 + (data[0] | data[1] % 4u << 8);
    const std::string text(std::string(data + 2, data + size).c_str());  // up to the first zero
    CheckDecoding(text, limit);
    CheckMeasures(text, limit);
    CheckEncoding<wchar_t>(data + 2, size - 2, limit, LCopyUTF8FromUTF32Native);
    CheckEncoding<unsigned short>(data + 2, size - 2, limit, LCopyUTF8FromUnicode);
    return 0;
}
