#include "app/LCFBundle.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/LCFString.h"
#include "base/LStringParser.h"

namespace {

/// The whole number at the beginning of `text`, 0 when there is none.
int ToInt(const char* text) {
    const long number = std::strtol(text, nullptr, 10);
    if (number > INT_MAX) return INT_MAX;
    if (number < INT_MIN) return INT_MIN;
    return static_cast<int>(number);
}

const char* WithoutLeadingWord(const char* text) {
    if (*text != 'V') return text;
    const char* const space = std::strchr(text, ' ');
    return space == nullptr ? "" : space + 1;
}

}  // namespace

bool LCFBundle::GetVersionNumber(int& major, int& minor) const {
    if (bundle_ == nullptr) return false;
    const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle_, kCFBundleVersionKey);
    if (value == nullptr) return false;
    const LCFString version(static_cast<CFStringRef>(CFRetain(value)));
    char text[260];
    version.GetString(text, sizeof text);
    if (text[0] == '\0') return false;

    LStringParserTemplate<char> parser(WithoutLeadingWord(text));
    char majorText[260];
    parser.GetToCharacterAndSkip(".", majorText);
    major = ToInt(majorText);
    minor = ToInt(parser.cursor);
    return true;
}
