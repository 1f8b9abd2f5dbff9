#include <cstring>

#include "base/LFile.h"
#include "base/LFileShared.h"

using LFileShared::bufferSize;
using LFileShared::copyCut;
using LFileShared::isSeparator;

namespace {

/// How many bytes two texts have in common at their beginning.
size_t commonLength(const char* a, const char* b) {
    size_t i = 0;
    while (a[i] != '\0' && a[i] == b[i]) ++i;
    return i;
}

bool endsComponent(char next) {
    return next == '/' || next == '\0';
}

/// The folders to leave to get out of what is left of a base: one, and one more for each separator but a last one.
unsigned long long levelsUp(const char* rest) {
    unsigned long long levels = 1;
    for (; rest[0] != '\0' && rest[1] != '\0'; ++rest) {
        if (isSeparator(*rest)) ++levels;
    }
    return levels;
}

/// "../" for each level, then `rest`; false, with `out` empty, when that is too long.
bool climb(char* out, unsigned long long levels, char separator, const char* rest) {
    if (std::strlen(rest) + 3 * levels > bufferSize) return false;
    const char step[] = {'.', '.', separator, '\0'};
    size_t at = 0;
    for (; levels > 0; --levels) at = copyCut(out, at, step);
    copyCut(out, at, rest);
    return true;
}

}  // namespace

bool LFile::GetRelativePathFromAbsolutePath(char* out, const char* base, const char* target) {
    out[0] = '\0';
    const size_t common = commonLength(base, target);
    size_t shared = common;  // Length of the whole components in common, their separator included
    while (shared > 0 && !isSeparator(base[shared - 1])) --shared;

    if (base[common] == '\0') {
        if (isSeparator(target[common])) {
            copyCut(out, 0, target + common + 1);
            return true;
        }
        if (common > 0 && shared == common) {
            copyCut(out, 0, target + common);
            return true;
        }
    }
    if (shared == 0) {
        copyCut(out, 0, target);
        return true;
    }
    return climb(out, levelsUp(base + common), base[shared - 1], target + shared);
}

bool LFile::MakeRelativeFolder(char* out, const char* base, const char* target) {
    char folder[bufferSize];
    const size_t length = copyCut(folder, 0, base);
    if (length == 0 || folder[length - 1] != '/') copyCut(folder, length, "/");

    size_t common = commonLength(folder, target);
    const bool wholeComponents = endsComponent(folder[common]) && endsComponent(target[common]);
    while (!wholeComponents && common > 0 && folder[common - 1] != '/') --common;

    size_t at = 0;
    out[0] = '\0';
    for (const char* rest = folder + common; *rest != '\0'; ++rest) {
        if (*rest == '/') at = copyCut(out, at, "../");
    }
    target += common;
    copyCut(out, at, *target == '/' ? target + 1 : target);
    return true;
}

bool LFile::MakeRelativeFilePath(char* out, const char* base, const char* target) {
    return MakeRelativeFolder(out, base, target);
}
