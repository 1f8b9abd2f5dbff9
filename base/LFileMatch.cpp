// The matcher keeps one place to return to: behind the last '*' at which pattern and name parted. That is enough,
// although the rule asks for every later start of every '*'. Of two walks over the same pattern the one that began
// later in the name stays ahead until they meet, and from there they are one; so once a walk has come to another '*' at
// which it parts, all that an earlier '*' could still reach, this one reaches too. Likewise a walk that uses the name
// up in vain leaves nothing for a later start.
#include <cstring>

#include "base/LFile.h"

template <typename T>
bool LFile::IsMatch(const T* pattern, const T* name) {
    const T* afterStar = nullptr;
    const T* start = nullptr;  // Where in the name the walk behind the last '*' began
    for (;;) {
        while (*pattern != 0 && *name != 0 && (*pattern == *name || *pattern == '?')) {
            ++pattern;
            ++name;
        }
        if (*name == 0) {
            while (*pattern == '*') ++pattern;
            return *pattern == 0;
        }
        if (*pattern == '*') {
            afterStar = ++pattern;
            if (*pattern == 0) return true;
            start = name;
        } else {
            if (afterStar == nullptr) return false;
            pattern = afterStar;
            ++start;
        }
        // A plain character behind the '*' is looked for at the C library's speed.
        if (*pattern != '*' && *pattern != '?') {
            start = std::strchr(start, *pattern);
            if (start == nullptr) return false;
        }
        name = start;
    }
}

template bool LFile::IsMatch<char>(const char* pattern, const char* name);
