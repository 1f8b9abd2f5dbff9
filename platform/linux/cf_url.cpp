#include <CoreServices/CoreServices.h>

#include <filesystem>
#include <new>

#include "cf_object.h"
#include "file_status.h"

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef path, CFURLPathStyle style, Boolean) {
    if (path == nullptr || style != kCFURLPOSIXPathStyle) return nullptr;
    try {
        std::string text;
        if (!cfStringToUtf8(path, text) || text.empty() || text.find('\0') != std::string::npos) return nullptr;
        if (text.front() != '/') {
            std::error_code error;
            const std::filesystem::path here = std::filesystem::current_path(error);
            if (error) return nullptr;
            text = (here / text).string();
        }
        return new __CFURL(std::move(text));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

Boolean CFURLGetFSRef(CFURLRef url, FSRef* reference) {
    struct stat status {};
    if (!statLink(url->path, status)) return 0;
    reference->device = status.st_dev;
    reference->inode = status.st_ino;
    return 1;
}
