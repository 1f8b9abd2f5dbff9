// LCFURL: the platform's URL object of a path.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

/// Owns one URL, or none. Belongs to one thread at a time.
class LCFURL {
  public:
    LCFURL() = default;
    ~LCFURL();
    LCFURL(const LCFURL&) = delete;
    LCFURL& operator=(const LCFURL&) = delete;

    /// Makes the URL of `path`, as it stands (nothing in it is escaped), marked as a folder when it is one. False, with
    /// no URL held, when the path is empty or no valid UTF-8.
    bool CreateFromFullPath(const char* path);

    /// The URL held, still owned by this object; null when there is none.
    CFURLRef GetURLRef() const { return url_; }

  private:
    CFURLRef url_ = nullptr;
};
