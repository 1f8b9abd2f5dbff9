#include "base/LCFURL.h"

#include <sys/stat.h>

#include "base/LCFString.h"

LCFURL::~LCFURL() {
    CFRelease(url_);
}

bool LCFURL::CreateFromFullPath(const char* path) {
    CFRelease(url_);
    url_ = nullptr;
    // Not LCFString::SetString: of a path that is not valid UTF-8 its beginning would be another path.
    const LCFString text(CFStringCreateWithCString(kCFAllocatorDefault, path, kCFStringEncodingUTF8));
    if (text.GetStringRef() == nullptr) return false;
    struct stat status {};
    const bool isDirectory = stat(path, &status) == 0 && S_ISDIR(status.st_mode);
    url_ = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.GetStringRef(), kCFURLPOSIXPathStyle, isDirectory);
    return url_ != nullptr;
}
