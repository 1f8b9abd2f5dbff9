#include <cstring>

#include "base/LFile.h"
#include "base/LFileShared.h"

using LFileShared::bufferSize;
using LFileShared::isSeparator;
using LFileShared::maxLength;

void LFile::_GetFileFromPath(char* out, const char* path) {
    size_t length = 0;
    for (; *path != '\0' && length < maxLength; ++path) {
        if (isSeparator(*path))
            length = 0;
        else
            out[length++] = *path;
    }
    out[length] = '\0';
}

void LFile::_GetFileNameFromPath(char* out, const char* path) {
    _GetFileFromPath(out, path);
    char* const dot = std::strrchr(out, '.');
    if (dot != nullptr && dot != out) *dot = '\0';
}

void LFile::_GetFolderFromPath(char* out, const char* path) {
    const bool rooted = path[0] == '/';
    size_t folder = 0;  // Index of the last separator; none and one in first place come to the same
    for (size_t i = 0; i < bufferSize && path[i] != '\0'; ++i) {
        if (isSeparator(path[i])) folder = i;
    }
    if (folder == 0 && rooted) folder = 1;
    std::memmove(out, path, folder);
    out[folder] = '\0';
}

void LFile::_GetFileExtensionFromPath(char* out, const char* path) {
    const char* dot = nullptr;
    for (; *path != '\0'; ++path) {
        if (isSeparator(*path))
            dot = nullptr;
        else if (*path == '.')
            dot = path;
    }
    LFileShared::copyCut(out, 0, dot == nullptr ? "" : dot);
}

char* LFile::_GetBaseFolderFromPath(char* out, const char* path) {
    size_t length = 0;
    while (length < maxLength && path[length] != '\0' && !(length >= 2 && isSeparator(path[length]))) ++length;
    const bool atEnd = length < maxLength && path[length] == '\0';
    if (atEnd && length >= 2 && isSeparator(path[length - 1])) --length;
    std::memmove(out, path, length);
    out[length] = '\0';
    return out;
}
