#include <cstring>
#include <new>

#include "cf_encodings.h"
#include "cf_object.h"

namespace {

// Objects of the program's whole life: one reference too many, so that no balanced use ever frees them.
CFStringRef makeConstant(const char16_t* text) {
    return new __CFString(text);
}

}  // namespace

const CFStringRef kCFBundleVersionKey = makeConstant(u"CFBundleVersion");
const CFStringRef kCFBundleIdentifierKey = makeConstant(u"CFBundleIdentifier");

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count, CFStringEncoding encoding,
                                    Boolean) {
    if (count < 0 || (bytes == nullptr && count > 0)) return nullptr;
    try {
        std::u16string units;
        const std::string_view view(reinterpret_cast<const char*>(bytes), static_cast<size_t>(count));
        if (!cf_encodings::decode(view, encoding, units)) return nullptr;
        return new __CFString(std::move(units));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding) {
    if (text == nullptr || encoding == kCFStringEncodingUnicode) return nullptr;
    return CFStringCreateWithBytes(allocator, reinterpret_cast<const UInt8*>(text),
                                   static_cast<CFIndex>(std::strlen(text)), encoding, 0);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* units, CFIndex count) {
    constexpr CFIndex kLargest = static_cast<CFIndex>(~0UL >> 2);
    if (count > kLargest) return nullptr;
    return CFStringCreateWithBytes(allocator, reinterpret_cast<const UInt8*>(units),
                                   count * static_cast<CFIndex>(sizeof(UniChar)), kCFStringEncodingUnicode, 0);
}

CFIndex CFStringGetLength(CFStringRef string) {
    return static_cast<CFIndex>(string->units.size());
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* units) {
    if (range.length <= 0) return;
    std::memcpy(units, string->units.data() + range.location, static_cast<size_t>(range.length) * sizeof(UniChar));
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size, CFStringEncoding encoding) {
    const CFIndex length = cf_encodings::encodedSize(string->units, encoding);
    const CFIndex terminator = encoding == kCFStringEncodingUnicode ? 2 : 1;
    if (length < 0 || size - terminator < length) return 0;
    cf_encodings::encode(string->units, encoding, buffer);
    std::memset(buffer + length, 0, static_cast<size_t>(terminator));
    return 1;
}

bool cfStringToUtf8(CFStringRef string, std::string& out) {
    const CFIndex length = cf_encodings::encodedSize(string->units, kCFStringEncodingUTF8);
    if (length < 0) return false;
    out.resize(static_cast<size_t>(length));
    cf_encodings::encode(string->units, kCFStringEncodingUTF8, out.data());
    return true;
}
