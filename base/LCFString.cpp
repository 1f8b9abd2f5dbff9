#include "base/LCFString.h"

#include <cstring>
#include <cwchar>
#include <limits>
#include <new>

#include "base/LCharsets.h"
#include "base/LCharsetsRoom.h"
#include "base/LCharsetsScratch.h"
#include "base/LStringUtil.h"

using namespace LCharsetsDetail;

namespace {

template <typename T>
void empty(LStringLongTemplate<T>& out) {
    if (out.buffer == nullptr) return;
    out.buffer[0] = 0;
    out.length = 0;
}

/// What stands before the first ill-formed sequence.
CFStringRef createFromBeginning(const char* utf8, size_t length) {
    UnitScratch units(length + 1);
    LCopyUnicodeFromUTF8(units.data(), utf8, length + 1);
    return CFStringCreateWithCharacters(kCFAllocatorDefault, units.data(), static_cast<CFIndex>(lstrlen(units.data())));
}

CFStringRef createFromUtf8(const char* utf8) {
    const size_t length = std::strlen(utf8);
    if (length > static_cast<size_t>(std::numeric_limits<CFIndex>::max())) return nullptr;
    CFStringRef string = CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8),
                                                 static_cast<CFIndex>(length), kCFStringEncodingUTF8, false);
    if (string == nullptr) string = CFStringCreateWithCString(kCFAllocatorDefault, utf8, kCFStringEncodingUTF8);
    return string != nullptr ? string : createFromBeginning(utf8, length);
}

template <typename T>
void getString(const unsigned short* text, LStringLongTemplate<T>& out) {
    empty(out);
    if (text == nullptr) return;
    const unsigned long bytes = lstrlen(text) * sizeof *text;
    const LCFString string(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text),
                                                   static_cast<CFIndex>(bytes), kCFStringEncodingUnicode, false));
    string.GetString(out);
}

}  // namespace

LCFString::~LCFString() {
    CFRelease(string_);
}

void LCFString::SetString(const char* utf8) {
    CFRelease(string_);
    string_ = nullptr;
    if (utf8 != nullptr) string_ = createFromUtf8(utf8);
}

void LCFString::GetString(LStringLongTemplate<char>& out) const {
    empty(out);
    if (string_ == nullptr) return;
    const unsigned long size = roomFor(out, static_cast<unsigned long>(CFStringGetLength(string_)), longestUtf8);
    if (!CFStringGetCString(string_, out.buffer, static_cast<CFIndex>(size), kCFStringEncodingUTF8)) out.buffer[0] = 0;
    takeLength(out);
}

void LCFString::GetString(char* out, unsigned long size) const {
    if (size == 0) return;
    out[0] = '\0';
    if (string_ == nullptr) return;
    LStringLongTemplate<char> text;
    GetString(text);
    utf8strlcpy(out, text.buffer, size);
}

void LCFString::GetString(LStringLongTemplate<wchar_t>& out) const {
    empty(out);
    if (string_ == nullptr) return;
    const CFIndex units = CFStringGetLength(string_);
    const unsigned long size = roomFor(out, static_cast<unsigned long>(units) + 1, 1) - 1;
    UnitScratch text(size);
    CFStringGetCharacters(string_, CFRangeMake(0, units), text.data());
    text.data()[units] = 0;
    LCopyUTF32FromUnicode(out.buffer, text.data(), size);
    out.length = static_cast<uint32_t>(std::wcslen(out.buffer));
}

void LCFString::GetString(wchar_t* out, unsigned long size) const {
    if (size == 0) return;
    out[0] = 0;
    if (string_ == nullptr) return;
    LStringLongTemplate<wchar_t> text;
    GetString(text);
    LWcsLCpy(out, text.buffer, size);
}

void LUnicodeString::GetString(LStringLongTemplate<char>& out) const {
    getString(text_, out);
}

void LUnicodeString::GetString(LStringLongTemplate<wchar_t>& out) const {
    getString(text_, out);
}
