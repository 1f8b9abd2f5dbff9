// UTF-8 decoded, measured and cut, and the rest of the input encoded as UTF-32 and UTF-16, into buffers of exactly the
// promised size and with the results of the plain formulation. The first two bytes are that size.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "tests/base/charsets_reference.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

void CheckDecoding(const char* text, unsigned long limit) {
    const std::unique_ptr<wchar_t[]> wide(new wchar_t[limit]);
    const std::unique_ptr<unsigned short[]> units(new unsigned short[limit]);
    const std::unique_ptr<char[]> out(new char[limit]);
    Require(reference::decodes(text, limit, wide.get(), units.get()));
    Require(reference::measures(text, limit, out.get()));
}

template <typename T>
void CheckEncoding(const uint8_t* data, size_t bytes, unsigned long size,
                   unsigned long (*encode)(char*, const T*, unsigned long)) {
    std::basic_string<T> text(bytes / sizeof(T), 0);
    std::memcpy(text.data(), data, text.size() * sizeof(T));
    const std::unique_ptr<char[]> out(new char[size]);
    Require(reference::encodes(text.c_str(), size, out.get(), encode));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const unsigned long limit = 1 + (data[0] | data[1] % 4u << 8);
    const std::string text(std::string(data + 2, data + size).c_str());  // up to the first zero
    CheckDecoding(text.c_str(), limit);
    CheckEncoding<wchar_t>(data + 2, size - 2, limit, LCopyUTF8FromUTF32Native);
    CheckEncoding<unsigned short>(data + 2, size - 2, limit, LCopyUTF8FromUnicode);
    return 0;
}
