// The root of every core-foundation object: an atomic count and a virtual destructor.
//
// A CFTypeRef is the address of this root. Each concrete type derives from it alone and adds it first, so the opaque
// pointers of the public header convert by plain casts.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <string>
#include <string_view>

struct CFObject {
    CFObject() = default;
    virtual ~CFObject() = default;
    CFObject(const CFObject&) = delete;
    CFObject& operator=(const CFObject&) = delete;

    mutable std::atomic<unsigned> references{1};
};

struct __CFString final : CFObject {
    explicit __CFString(std::u16string text) : units(std::move(text)) {}
    const std::u16string units;
};

struct __CFURL final : CFObject {
    explicit __CFURL(std::string absolutePath) : path(std::move(absolutePath)) {}
    const std::string path;  // UTF-8, absolute
};

/// The UTF-8 form of a string, for use inside this layer; false when it holds an unpaired surrogate. May throw
/// std::bad_alloc.
bool cfStringToUtf8(CFStringRef string, std::string& out);
