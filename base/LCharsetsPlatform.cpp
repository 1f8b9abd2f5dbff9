// The conversions that the platform's string objects do.
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "base/LCFString.h"
#include "base/LCharsets.h"
#include "base/LCharsetsRoom.h"
#include "base/LCharsetsScratch.h"

using namespace LCharsetsDetail;

namespace {

CFStringRef createString(const void* bytes, size_t count, CFStringEncoding encoding) {
    if (count > static_cast<size_t>(std::numeric_limits<CFIndex>::max())) return nullptr;
    return CFStringCreateWithBytes(kCFAllocatorDefault, static_cast<const UInt8*>(bytes), static_cast<CFIndex>(count),
                                   encoding, false);
}

/// The string in `size` units of its encoding; "" without a string or when it cannot be had whole.
template <typename T>
void fetch(const LCFString& string, T* out, size_t size, CFStringEncoding encoding) {
    const size_t most = static_cast<size_t>(std::numeric_limits<CFIndex>::max()) / sizeof(T);
    const CFIndex bytes = static_cast<CFIndex>(std::min(size, most) * sizeof(T));
    const CFStringRef held = string.GetStringRef();
    if (held == nullptr || !CFStringGetCString(held, reinterpret_cast<char*>(out), bytes, encoding)) out[0] = 0;
}

void ansiFromUnits(char* out, const unsigned short* in, size_t units, size_t size) {
    const LCFString string(createString(in, units * sizeof *in, kCFStringEncodingUnicode));
    fetch(string, out, size, kCFStringEncodingISOLatin1);
}

void unitsFromAnsi(unsigned short* out, const char* in, size_t length, size_t size) {
    const LCFString string(createString(in, length, kCFStringEncodingWindowsLatin1));
    fetch(string, out, size, kCFStringEncodingUnicode);
}

unsigned long ansiInto(LStringLongTemplate<char>& out, const unsigned short* in, unsigned long units) {
    const unsigned long size = roomFor(out, units, 1);
    ansiFromUnits(out.buffer, in, units, size);
    return takeLength(out);
}

}  // namespace

unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& out, const unsigned short* in) {
    return ansiInto(out, in, lstrlen(in));
}

unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& out, const LStringLongTemplate<unsigned short>& in) {
    return ansiInto(out, textOf(in), in.length);
}

unsigned long LCopyUnicodeFromAnsi(LStringLongTemplate<unsigned short>& out, const LStringLongTemplate<char>& in) {
    const unsigned long size = roomFor(out, in.length, 1);
    unitsFromAnsi(out.buffer, textOf(in), in.length, size);
    return takeLength(out);
}

void LCopyAnsiFromUTF8(char* out, const char* in, unsigned long size) {
    if (size == 0) return;
    // The decoder takes less than `size` bytes, so a scratch for what is there is as good as one of `size` units.
    UnitScratch scratch(strnlen(in, size) + 1);
    LCopyUnicodeFromUTF8(scratch.data(), in, size);
    ansiFromUnits(out, scratch.data(), lstrlen(scratch.data()), size);
}

void LCopyUTF8FromAnsi(char* out, const char* in, unsigned long size) {
    if (size == 0) return;
    // Each character becomes a byte or more: of more than size - 1 none would arrive.
    const size_t length = strnlen(in, size - 1);
    UnitScratch scratch(length + 1);
    unitsFromAnsi(scratch.data(), in, length, length + 1);
    LCopyUTF8FromUnicode(out, scratch.data(), size);
}
