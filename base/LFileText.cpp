#include <strings.h>

#include <cstring>

#include "base/LFile.h"
#include "base/LFileShared.h"

using LFileShared::isSeparator;
using LFileShared::maxLength;

namespace {

/// A byte that neither a file name nor a path should hold. Bytes of UTF-8 sequences are not control characters.
bool isUnfitForPath(char c) {
    return static_cast<unsigned char>(c) < 32 || std::strchr("\"*:<>?|", c) != nullptr;
}

bool isUnfitForName(char c) {
    return isUnfitForPath(c) || isSeparator(c);
}

bool copyFit(const char* in, char* out, bool (*isUnfit)(char)) {
    size_t length = 0;
    for (; *in != '\0' && length < maxLength; ++in) {
        if (!isUnfit(*in)) out[length++] = *in;
    }
    out[length] = '\0';
    return length > 0;
}

}  // namespace

bool LFile::IsFileValid(const char* name) {
    if (*name == '\0') return false;
    while (*name != '\0' && !isUnfitForName(*name)) ++name;
    return *name == '\0';
}

bool LFile::PreprocessName(const char* in, char* out) {
    return copyFit(in, out, isUnfitForName);
}

bool LFile::PreprocessPath(const char* in, char* out) {
    return copyFit(in, out, isUnfitForPath) && out[std::strspn(out, " ")] != '\0';
}

char* LFile::EscapeFilePath(const char* in, char* out) {
    size_t length = 0;
    for (; *in != '\0'; ++in) {
        const bool quote = *in == '"' || *in == '`';
        if (length + (quote ? 2 : 1) > maxLength) break;
        if (quote) out[length++] = '\\';
        out[length++] = *in;
    }
    out[length] = '\0';
    return out;
}

bool LIsFileExtensionInList(const char* const* list, const char* extension) {
    if (list == nullptr) return false;
    while (*list != nullptr && strcasecmp(*list, extension) != 0) ++list;
    return *list != nullptr;
}

bool LFileIsLetterOrNumber(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
