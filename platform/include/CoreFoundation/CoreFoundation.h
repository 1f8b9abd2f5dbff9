// Strings, URLs and bundles: the subset of the platform's core objects that this project calls.
//
// Create rule: a function with Create or Copy in its name returns one reference, released with CFRelease; a function
// with Get returns a borrowed one. Null results mean failure. Objects are immutable, so any thread may use one; counts
// are atomic. Running out of memory gives null here, never an exception.
#pragma once

#include <cstddef>
#include <cstdint>

using CFIndex = long;
using Boolean = unsigned char;
using UInt8 = unsigned char;
using UniChar = unsigned short;
using CFStringEncoding = uint32_t;
using CFTypeRef = const void*;

struct __CFAllocator;
struct __CFString;
struct __CFURL;
struct __CFBundle;
using CFAllocatorRef = const __CFAllocator*;
using CFStringRef = const __CFString*;
using CFURLRef = const __CFURL*;
using CFBundleRef = __CFBundle*;

struct CFRange {
    CFIndex location;
    CFIndex length;
};
inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    return {location, length};
}

constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;

constexpr CFStringEncoding kCFStringEncodingUnicode = 0x0100;  // UTF-16, host byte order
constexpr CFStringEncoding kCFStringEncodingISOLatin1 = 0x0201;
constexpr CFStringEncoding kCFStringEncodingWindowsLatin1 = 0x0500;
constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;

enum CFURLPathStyle { kCFURLPOSIXPathStyle = 0 };

extern const CFStringRef kCFBundleVersionKey;     // "CFBundleVersion"
extern const CFStringRef kCFBundleIdentifierKey;  // "CFBundleIdentifier"

CFTypeRef CFRetain(CFTypeRef object);
/// Gives one reference back; null is ignored.
void CFRelease(CFTypeRef object);

// ---- Strings: UTF-16 units inside, any sequence of them

/// Null when the bytes are not valid in `encoding` (for UTF-8: overlong forms, surrogates, values above U+10FFFF, a
/// sequence cut off). For kCFStringEncodingUnicode an odd last byte is refused. `isExternalRepresentation` is false.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* units, CFIndex count);

/// Length in UTF-16 units.
CFIndex CFStringGetLength(CFStringRef string);
/// Copies the units of `range`, without a terminator; the range lies inside the string.
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* units);
/// Writes the string with a terminator in `encoding`. `size` is in bytes, the terminator's included (two bytes for
/// kCFStringEncodingUnicode). False, with the buffer's content unspecified, when it does not fit or when a character
/// has no form in `encoding`.
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size, CFStringEncoding encoding);

// ---- URLs: a file-system path

/// `style` is kCFURLPOSIXPathStyle; a relative path is taken against the current directory. Null for an empty path.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style,
                                       Boolean isDirectory);

// ---- Bundles

/// The bundle in the directory at `url`; null unless it is a directory. Its information dictionary is read at once,
/// from Contents/Info.plist, else from Info.plist at the top: a regular file of at most 1 MiB, XML or binary; anything
/// else gives an empty dictionary. Nothing is cached between calls, so a version changed on disk is seen.
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef url);

/// The text under `key`, borrowed from the bundle; null when there is none or when it is no text.
CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
