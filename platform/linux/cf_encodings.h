// Conversions between UTF-16 and the byte encodings that strings are made from and read as. Strict: a text that has no
// exact form on the other side is refused, never repaired.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <string_view>

namespace cf_encodings {

/// Appends the UTF-16 form of `bytes` to `out`; false when they are not valid in `encoding` or it is not known. `out`
/// is then left half-filled. May throw std::bad_alloc.
bool decode(std::string_view bytes, CFStringEncoding encoding, std::u16string& out);

/// Number of bytes that `units` take in `encoding`, without a terminator; -1 when a character has no form there.
CFIndex encodedSize(std::u16string_view units, CFStringEncoding encoding);

/// Writes the form that encodedSize measured.
void encode(std::u16string_view units, CFStringEncoding encoding, char* out);

}  // namespace cf_encodings
