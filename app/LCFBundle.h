// An application's bundle, as far as the helper looks into it: the version number.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

class LCFBundle {
  public:
    /// Takes over one reference to `bundle`, which may be null.
    explicit LCFBundle(CFBundleRef bundle) : bundle_(bundle) {}
    ~LCFBundle() { CFRelease(bundle_); }
    LCFBundle(const LCFBundle&) = delete;
    LCFBundle& operator=(const LCFBundle&) = delete;

    [[nodiscard]] bool IsNull() const { return bundle_ == nullptr; }

    /// The first two numbers of the bundle's CFBundleVersion (not of the short version text). A leading word that
    /// begins with 'V' is skipped up to its first space, so "Version 2.13" counts as "2.13"; a number that is missing
    /// is 0 and one that is too large stays at the end of its range. False, with both arguments left as they were, when
    /// there is no bundle, no version text, or an empty one.
    bool GetVersionNumber(int& major, int& minor) const;

  private:
    CFBundleRef bundle_;
};
