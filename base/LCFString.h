// LCFString: text into and out of the platform's string objects. LUnicodeString: a UTF-16 text as UTF-8 or UTF-32.
//
// `char` text is UTF-8, `wchar_t` text UTF-32, `unsigned short` text UTF-16 in host byte order. Nothing reports an
// error: what cannot be converted gives no platform string or an empty text. Running out of memory throws
// std::bad_alloc, and every temporary is freed on the way. An object belongs to one thread at a time.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

template <typename T>
class LStringLongTemplate;

/// Owns one platform string, or none.
class LCFString {
  public:
    LCFString() = default;
    /// Takes over one reference to `string`, which may be null.
    explicit LCFString(CFStringRef string) : string_(string) {}
    ~LCFString();
    LCFString(const LCFString&) = delete;
    LCFString& operator=(const LCFString&) = delete;

    /// Replaces the string held. Of a text that is not valid UTF-8 the beginning before the first ill-formed sequence
    /// is held, its characters above U+FFFF cut to 16 bits. A null text leaves no string.
    void SetString(const char* utf8);

    /// The string held, still owned by this object; null when there is none.
    CFStringRef GetStringRef() const { return string_; }

    /// As UTF-8 into `size` bytes, the terminator's included; a text that is too long is cut before the character that
    /// does not fit. "" without a string. With size 0 nothing is written.
    void GetString(char* out, unsigned long size) const;
    /// As UTF-8, whole. A string with an unpaired surrogate has no UTF-8 form and gives "".
    void GetString(LStringLongTemplate<char>& out) const;
    /// As UTF-32 into `size` characters, the terminator's included. Each UTF-16 unit becomes one character: surrogate
    /// pairs are not joined. With size 0 nothing is written.
    void GetString(wchar_t* out, unsigned long size) const;
    void GetString(LStringLongTemplate<wchar_t>& out) const;

  private:
    CFStringRef string_ = nullptr;
};

/// A zero-terminated UTF-16 text that belongs to someone else and outlives this object; null is no text.
class LUnicodeString {
  public:
    explicit LUnicodeString(const unsigned short* text) : text_(text) {}

    /// As LCFString::GetString of a platform string with this text.
    void GetString(LStringLongTemplate<char>& out) const;
    void GetString(LStringLongTemplate<wchar_t>& out) const;

  private:
    const unsigned short* text_;
};
