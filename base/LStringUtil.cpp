#include "base/LStringUtil.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>

namespace {

// The value of a hexadecimal digit, -1 of any other character.
int HexadecimalDigit(wchar_t character) {
    if (character >= L'0' && character <= L'9') return static_cast<int>(character - L'0');
    if (character >= L'a' && character <= L'f') return static_cast<int>(character - L'a') + 10;
    if (character >= L'A' && character <= L'F') return static_cast<int>(character - L'A') + 10;
    return -1;
}

template <typename T>
unsigned HexadecimalNumber(const T* text) {
    unsigned value = 0;
    for (int digit; (digit = HexadecimalDigit(static_cast<wchar_t>(*text))) >= 0; ++text) {
        value = (value << 4) | static_cast<unsigned>(digit);
    }
    return value;
}

template <typename T>
unsigned long CopyWithLimit(T* out, const T* text, unsigned long length, unsigned long size) {
    if (size == 0) return length;
    const unsigned long copied = std::min(length, size - 1);
    std::copy_n(text, copied, out);
    out[copied] = 0;
    return length;
}

}  // namespace

unsigned long lstrlen(const unsigned short* text) {
    const unsigned short* end = text;
    while (*end != 0) ++end;
    return static_cast<unsigned long>(end - text);
}

unsigned atoh(const char* text) {
    return HexadecimalNumber(text);
}

unsigned wtoh(const wchar_t* text) {
    return HexadecimalNumber(text);
}

int tstrcmpend(const char* text, const char* suffix) {
    const size_t length = std::strlen(text);
    const size_t suffixLength = std::strlen(suffix);
    if (suffixLength > length) return -1;
    return std::strcmp(text + (length - suffixLength), suffix);
}

int wstrcmp(const wchar_t* left, const wchar_t* right) {
    for (; *left != 0 && *right != 0; ++left, ++right) {
        if (*left != *right) return -1;
    }
    return 0;
}

unsigned long LStrLCpy(char* out, const char* text, unsigned long size) {
    return CopyWithLimit(out, text, std::strlen(text), size);
}

unsigned long LWcsLCpy(wchar_t* out, const wchar_t* text, unsigned long size) {
    return CopyWithLimit(out, text, std::wcslen(text), size);
}

char* strlwr(char* text) {
    for (char* place = text; *place != 0; ++place) {
        if (*place >= 'A' && *place <= 'Z') *place = static_cast<char>(*place - 'A' + 'a');
    }
    return text;
}

char* strupr(char* text) {
    for (char* place = text; *place != 0; ++place) {
        if (*place >= 'a' && *place <= 'z') *place = static_cast<char>(*place - 'a' + 'A');
    }
    return text;
}

char* LStripFromFirstTabToEnd(char* text) {
    char* tab = std::strchr(text, '\t');
    if (tab != nullptr) *tab = 0;
    return tab;
}

void LRemoveHTTPItem(const char* name, char* query) {
    char pattern[262];
    if (LStrLCpy(pattern, name, sizeof pattern) < sizeof pattern - 1) std::strcat(pattern, "=");
    char* item = std::strstr(query, pattern);
    if (item == nullptr) return;
    const char* rest = item + std::strlen(pattern);
    rest += std::strcspn(rest, "&");
    if (item != query && item[-1] == '&') --item;
    std::memmove(item, rest, std::strlen(rest) + 1);
}

void LStripAmpersand(char* out, const char* text) {
    for (; text != nullptr && *text != 0; ++text) {
        // Whatever follows an '&' is kept, a second '&' too.
        if (*text == '&') ++text;
        if (*text == 0) break;
        *out++ = *text;
    }
    *out = 0;
}

void LStripJPStyleAmpersand(char* out, const char* text) {
    while (text != nullptr && *text != 0) {
        if (text[0] == '(' && text[1] == '&') {
            text = std::strchr(text, ')');
            if (text != nullptr) ++text;
        } else {
            *out++ = *text++;
        }
    }
    *out = 0;
}

char* LPrepareForMenuItem(char* out, const char* text) {
    LStripAmpersand(out, text);
    return LStripFromFirstTabToEnd(out);
}

void LPrepareForDisplay(char* out, const char* text) {
    LStripAmpersand(out, text);
}

void randomize() {
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    std::srand(static_cast<unsigned>(now));
    std::srand(static_cast<unsigned>(std::rand()) ^ static_cast<unsigned>(std::time(nullptr)));
}

unsigned long LStringGenerateRandomPassword(char* out, unsigned long count) {
    randomize();
    std::generate_n(out, count, [] { return static_cast<char>('a' + std::rand() % 26); });
    out[count] = 0;
    return count;
}
