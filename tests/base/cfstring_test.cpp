#include <gtest/gtest.h>

#include <string>

#include "base/LCFString.h"
#include "base/LString.h"
#include "guarded.h"

namespace {

using Units = std::basic_string<unsigned short>;

std::string utf8(const LCFString& string, unsigned long size) {
    Guarded<char> out(size);
    string.GetString(out.data(), size);
    return out.data();
}

TEST(LCFString, KeepsWhatIsValid) {
    const std::string longText(5000, 'x');
    const struct {
        std::string in, held;
        std::wstring wide;
    } rows[] = {
        {"", "", L""},
        {"a\u00E9\u20AC", "a\u00E9\u20AC", L"a\u00E9\u20AC"},
        {"ab\xFFzd", "ab", L"ab"},
        {"\xC3", "", L""},
        {"\U0001F600", "\U0001F600", {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)}},
        {longText + "\x80", longText, std::wstring(5000, L'x')},
    };
    LCFString string;
    for (const auto& row : rows) {
        string.SetString(row.in.c_str());
        LStringLongTemplate<char> narrow;
        string.GetString(narrow);
        EXPECT_TRUE(narrow.buffer == row.held && narrow.length == row.held.size()) << row.in;
        EXPECT_EQ(utf8(string, row.held.size() + 1), row.held);
        LStringLongTemplate<wchar_t> wide;
        string.GetString(wide);
        EXPECT_TRUE(wide.buffer == row.wide && wide.length == row.wide.size()) << row.in;
    }
}

TEST(LCFString, FixedBuffers) {
    LCFString string;
    EXPECT_EQ(utf8(string, 1), "");
    std::string even;  // 258 bytes; one more character is cut as a whole
    while (even.size() < 258) even += "\u00E9";
    const struct {
        std::string in;
        unsigned long size;
        std::string out;
    } rows[] = {{"a\u00E9", 3, "a"}, {"a\u00E9", 4, "a\u00E9"}, {even + "\u00E9", 260, even}};
    for (const auto& row : rows) {
        string.SetString(row.in.c_str());
        EXPECT_EQ(utf8(string, row.size), row.out);
        string.GetString(Guarded<char>(0).data(), 0);
        string.GetString(Guarded<wchar_t>(0).data(), 0);
    }
    Guarded<wchar_t> wide(3);
    string.GetString(wide.data(), 3);
    EXPECT_EQ(std::wstring(wide.data()), L"\u00E9\u00E9");
    string.SetString(nullptr);
    LStringLongTemplate<char> out;
    out = "before";
    string.GetString(out);
    EXPECT_TRUE(string.GetStringRef() == nullptr && out.length == 0 && out.buffer[0] == 0);
}

TEST(LUnicodeString, BothWays) {
    const Units units{'a', 0xE9, 0xD83D, 0xDE00};
    LStringLongTemplate<char> narrow;
    LUnicodeString(units.c_str()).GetString(narrow);
    EXPECT_STREQ(narrow.buffer, "a\u00E9\U0001F600");
    LStringLongTemplate<wchar_t> wide;
    LUnicodeString(units.c_str()).GetString(wide);
    EXPECT_EQ(wide.length, 4u);
    LUnicodeString(nullptr).GetString(narrow);
    EXPECT_EQ(narrow.length, 0u);
    LUnicodeString(Units{'a', 0xD800}.c_str()).GetString(narrow);  // an unpaired surrogate has no UTF-8
    EXPECT_EQ(narrow.length, 0u);
}

}  // namespace
