// UTF-8 decoded, cut and measured, by class and at every boundary byte; the fuzz target `utf` holds mixed texts at
// chance limits and all of encoding against the same reference, over its kept corpus as well.
#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "base/LCharsets.h"
#include "charsets_reference.h"
#include "guarded.h"

namespace {

using namespace std::string_literals;
using Units = std::basic_string<unsigned short>;

constexpr size_t most = 1024;

// One text in and whatever comes out, both against the end of their pages.
class Utf : public testing::Test {
  protected:
    const char* put(const std::string& text) { return put(in_, text); }

    template <typename T>
    static const T* put(Guarded<T>& place, const std::basic_string<T>& text) {
        T* const at = place.last(text.size() + 1);
        std::copy_n(text.c_str(), text.size() + 1, at);
        return at;
    }

    reference::Decoded decode(const std::string& text, unsigned long limit) {
        wchar_t* const out = wide_.last(limit);
        const unsigned long result = LCopyUTF32FromUTF8Native(out, put(text), limit);
        const std::wstring made = out;
        return {{made.begin(), made.end()}, result};
    }

    void compare(const std::string& text, unsigned long limit) {
        SCOPED_TRACE(testing::PrintToString(text) + " limit " + std::to_string(limit));
        const char* const in = put(text);
        ASSERT_TRUE(reference::decodes(in, limit, wide_.last(limit), units_.last(limit)));
        ASSERT_TRUE(reference::measures(in, limit, bytes_.last(limit)));
    }

    Guarded<char> in_{most}, bytes_{most};
    Guarded<wchar_t> wide_{most};
    Guarded<unsigned short> units_{most};
};

TEST_F(Utf, DecodesByClass) {
    const struct {
        const char* in;
        unsigned long limit;
        reference::Decoded expected;
    } cases[] = {
        {"", 1, {U"", 0}},
        {"a", 1, {U"", 1}},
        {"a\xC3\xA9", 3, {U"a", 1}},
        {"a\xC3\xA9", 4, {U"a\u00E9", 0}},
        {"a\xC3", 9, {U"a", 2}},                  // cut by the terminator
        {"a\xC3", 3, {U"a", 1}},                  // the limit comes first
        {"a\xC0\x80", 9, {U"a", 2}},              // overlong
        {"a\xED\xA0\x80", 9, {U"a", 2}},          // surrogate
        {"a\xF4\x90\x80\x80", 9, {U"a", 2}},      // past the end
        {"a\x80", 9, {U"a", 2}},                  // stray
        {"a\xF8\x88\x80\x80\x80", 9, {U"a", 2}},  // five bytes
        {"\xF4\x8F\xBF\xBF\xEF\xBF\xBF\xED\x9F\xBF", 11, {U"\U0010FFFF\uFFFF\uD7FF", 0}},
    };
    for (const auto& row : cases) EXPECT_EQ(decode(row.in, row.limit), row.expected) << row.in << ' ' << row.limit;
    EXPECT_EQ(LCopyUTF32FromUTF8(wide_.last(0), "a", 0), 1u);
    EXPECT_EQ(LCopyUTF8FromUTF32(bytes_.last(0), L"a", 0), 1u);
    EXPECT_EQ(LCopyUnicodeFromUTF8(units_.last(0), "a", 0), 1u);
    EXPECT_EQ(utf8strlcpy(bytes_.last(0), "a", 0), 0u);
    EXPECT_EQ(LCopyUTF8FromUTF32(bytes_.last(6), L"\u00E9\u00E9\u00E9", 6), 1u);
    EXPECT_STREQ(bytes_.last(6), "\u00E9\u00E9");
}

// Every combination of the bytes at which a rule changes, alone and where a vector meets them.
TEST_F(Utf, AgreesOnEveryBoundaryByte) {
    const std::string bytes =
        "A\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xF7\xF8\xFC\xFF";
    for (const size_t padding : {0, 15, 57, 61}) {
        const std::string before(padding, 'x');
        const std::string after = padding == 0 ? "" : std::string(64, 'y');
        for (const char a : bytes) {
            for (const char b : bytes) {
                for (const char c : bytes) {
                    for (const size_t limit : {padding + 2, padding + 3, size_t{200}}) {
                        compare(before + a + b + c + after, limit);
                    }
                }
                if (padding < 57) continue;
                for (const char c : "\x80\x90\xBF"s) compare(before + a + b + "\x80"s + c + after, 200);
            }
        }
    }
}

TEST_F(Utf, FormsWithoutASizeTake260) {
    for (const size_t length : {0, 258, 259, 260, 261}) {
        const std::string text(length, 'a');
        unsigned short* const units = units_.last(260);
        LCopyUnicodeFromUTF8(units, put(text));
        EXPECT_EQ(Units(units), Units(std::min<size_t>(length, 259), 'a'));
        char* const bytes = bytes_.last(260);
        LCopyUTF8FromUnicode(bytes, put(units_, Units(length, 'a')));
        EXPECT_EQ(bytes, text.substr(0, 259));
    }
}

TEST_F(Utf, UnitsAndFields) {
    const wchar_t wide[] = {0x1F600, L'b', 0};
    unsigned short units[5] = {};
    EXPECT_EQ(LCopyUnicodeFromUTF32(units, wide, 3), units);
    EXPECT_EQ(Units(units), (Units{0xF600, 'b'}));
    wchar_t back[2];
    LCopyUTF32FromUnicode(back, units, 2);
    EXPECT_EQ(std::wstring(back), L"\xF600");

    const auto field = [](const Units& text, unsigned long count, bool terminate) {
        Guarded<unsigned short> out(count + (terminate ? 1 : 0));
        const unsigned long written = LCopyToBigEndianUnicode(out.data(), text.c_str(), count, terminate);
        const auto* bytes = reinterpret_cast<const char*>(out.data());
        return std::string(bytes, 2 * (count + (terminate ? 1 : 0))).substr(0, 2 * written + (terminate ? 2 : 0));
    };
    EXPECT_EQ(field({'A', 'B'}, 4, false), "\0A\0B\0 \0 "s);
    EXPECT_EQ(field({'A', 'B'}, 4, true), "\0A\0B\0\0"s);
    EXPECT_EQ(field({'A', 'B'}, 1, true), "\0A\0\0"s);
    EXPECT_EQ(field({'A', 'B'}, 0, true), "\0\0"s);
    EXPECT_EQ(field({'A', 'B'}, 1, false), "\0A"s);
}

}  // namespace
