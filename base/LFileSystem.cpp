#include <CoreServices/CoreServices.h>
#include <platform_mount.h>
#include <unistd.h>

#include <cstring>

#include "base/LCFURL.h"
#include "base/LFile.h"
#include "base/LFileShared.h"
#include "base/LString.h"

using LFileShared::bufferSize;
using LFileShared::copyCut;
using LFileShared::maxLength;

namespace {

bool exists(const char* path) {
    if (access(path, F_OK) == 0) return true;
    LCFURL url;
    FSRef reference;
    return url.CreateFromFullPath(path) && CFURLGetFSRef(url.GetURLRef(), &reference);
}

}  // namespace

void LFile::MakeUniqueOrderedFilePath(char* out, const char* folder, const char* name, const char* extension) {
    char candidate[bufferSize];
    char previous[bufferSize] = "";
    _MakeFilePath(candidate, folder, name, extension);
    for (unsigned n = 0; exists(candidate); ++n) {
        // Two in a row alike: the cut has left none of the digits that change, nor will it of longer numbers.
        if (std::strcmp(candidate, previous) == 0) {
            out[0] = '\0';
            return;
        }
        std::strcpy(previous, candidate);
        const LStringShortTemplate<char> numbered(LStringPrintFormatTemplate<char>("%s_%u"), name, n);
        _MakeFilePath(candidate, folder, numbered.text, extension);
    }
    copyCut(out, 0, candidate);
}

void LFile::GetHumanReadableDriveFromPath(char* out, const char* path) {
    if (platform_mount_point(path, out, bufferSize)) return;
    if (path[0] == '/') {
        copyCut(out, 0, "/");
        return;
    }
    size_t length = 0;
    for (; length < maxLength && LFileIsLetterOrNumber(path[length]); ++length) out[length] = path[length];
    copyCut(out, length, length > 0 ? ":\\" : "");
}
