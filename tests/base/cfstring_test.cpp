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
    const struct {
        std::string in, held;
        std::wstring wide;
    } rows[] = {
        {"", "", L""},
        {"a\u00E9\u20AC", "a\u00E9\u20AC", L"a\u00E9\u20AC"},
        {"ab\xFF"
         "cd",
         "ab", L"ab"},
        {"\xC3", "", L""},
        {"\U0001F600", "\U0001F600", {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)}},
        {std::string(5000, 'x') + "\x80", std::string(5000, 'x'), std::wstring(5000, L'x')},
    };
    LCFString string;
    for (const auto& row : rows) {
        string.SetString(row.in.c_str());
        LStringLongTemplate<char> narrow;
        string.GetString(narrow);
        EXPECT_EQ(narrow.buffer, row.held);
        EXPECT_EQ(narrow.length, row.held.size());
        EXPECT_EQ(utf8(string, row.held.size() + 1), row.held);
        LStringLongTemplate<wchar_t> wide;
        string.GetString(wide);
        EXPECT_EQ(wide.buffer, row.wide);
        EXPECT_EQ(wide.length, row.wide.size());
    }
}

TEST(LCFString, FixedBuffers) {
    LCFString string;
    EXPECT_EQ(utf8(string, 1), "");
    string.SetString("a\u00E9");
    EXPECT_EQ(utf8(string, 3), "a");
    EXPECT_EQ(utf8(string, 4), "a\u00E9");
    string.GetString(Guarded<char>(0).data(), 0);
    string.GetString(Guarded<wchar_t>(0).data(), 0);
    Guarded<wchar_t> wide(2);
    string.GetString(wide.data(), 2);
    EXPECT_EQ(std::wstring(wide.data()), L"a");

    std::string long260;
    for (int i = 0; i < 129; ++i) long260 += "\u00E9";  // 258 bytes; one more character is cut as a whole
    string.SetString((long260 + "\u00E9").c_str());
    EXPECT_EQ(utf8(string, 260), long260);
    string.SetString(nullptr);
    EXPECT_EQ(string.GetStringRef(), nullptr);
    LStringLongTemplate<char> out;
    out = "before";
    string.GetString(out);
    EXPECT_EQ(out.length, 0u);
    EXPECT_STREQ(out.buffer, "");
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
