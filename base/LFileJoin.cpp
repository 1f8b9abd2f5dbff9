#include <unistd.h>

#include <climits>
#include <cstring>

#include "base/LFile.h"
#include "base/LFileShared.h"

using LFileShared::bufferSize;
using LFileShared::copyCut;
using LFileShared::isSeparator;
using LFileShared::maxLength;

namespace {

/// Removes the last component of `base`. A separator in last place belongs to it; one in first place of all is the root
/// and stays.
void goUp(char* base) {
    const size_t length = std::strlen(base);
    if (length < 2) return;
    size_t at;
    if (!isSeparator(base[length - 1]) && isSeparator(base[length - 2])) {
        at = length - 2;
    } else {
        if (length < 3) return;
        at = length - 3;
        while (at > 0 && !isSeparator(base[at])) --at;
        if (!isSeparator(base[at])) return;
    }
    base[at == 0 ? 1 : at] = '\0';
}

/// Begins with a separator, or with a volume: a ':' before the first separator.
bool isAbsolute(const char* path) {
    const char* const end = path + std::strcspn(path, "/\\:");
    return *end == ':' || (end == path && isSeparator(*end));
}

}  // namespace

void LFile::_ApplyNewFileExtension(char* out, const char* path, const char* extension) {
    const size_t length = strnlen(path, maxLength);
    size_t cut = length;
    for (size_t i = 0; i < length; ++i) {
        if (isSeparator(path[i]))
            cut = length;
        else if (path[i] == '.' && i > 0)
            cut = i;
    }
    std::memmove(out, path, cut);
    copyCut(out, cut, extension);
}

int LFile::_MakeFilePath(char* out, const char* folder, const char* name, const char* extension) {
    size_t prefix = strnlen(folder, maxLength - 1);
    std::memmove(out, folder, prefix);
    if (prefix > 0 && !isSeparator(out[prefix - 1])) out[prefix++] = '/';
    copyCut(out, copyCut(out, prefix, name), extension);
    const unsigned long long whole = 0ULL + prefix + std::strlen(name) + std::strlen(extension);
    return whole > INT_MAX ? INT_MAX : static_cast<int>(whole);
}

void LFile::MakeAbsoluteFilePath(char* out, const char* base, const char* relative, const char* extension) {
    if (isAbsolute(relative)) {
        _MakeFilePath(out, "", relative, extension);
        return;
    }
    char folder[bufferSize];
    copyCut(folder, 0, base);
    for (;;) {
        if (relative[0] != '.') break;
        if (isSeparator(relative[1])) {
            relative += 2;
        } else if (relative[1] == '.' && isSeparator(relative[2])) {
            goUp(folder);
            relative += 3;
        } else {
            break;
        }
    }
    _MakeFilePath(out, folder, relative, extension);
}

char* LFile::GetCurrentDirectory(char* out) {
    return getcwd(out, bufferSize);
}

int LFile::SetCurrentDirectory(const char* path) {
    return chdir(path);
}
