// Long strings and their writers at every size that matters, also when memory runs out, and the small helpers.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/LPrint.h"
#include "base/LString.h"
#include "base/LStringUtil.h"

namespace {
long arraysLeft = std::numeric_limits<long>::max();
}

// Array allocations fail once `arraysLeft` of them were made.
void* operator new[](size_t size) {
    void* memory = arraysLeft-- > 0 ? std::malloc(size) : nullptr;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

namespace {

class OutOfMemory {
  public:
    explicit OutOfMemory(long arrays) { arraysLeft = arrays; }
    ~OutOfMemory() { arraysLeft = std::numeric_limits<long>::max(); }
};

template <typename T>
class LongStrings : public testing::Test {};
using Characters = testing::Types<char, unsigned short, wchar_t>;
TYPED_TEST_SUITE(LongStrings, Characters);

TYPED_TEST(LongStrings, GrowExactlyAndHandOver) {
    LStringLongTemplate<TypeParam> string, other;
    string.GrowToSize(0);
    EXPECT_EQ(string.buffer, nullptr);
    for (const unsigned long size : {1UL, 258UL, 259UL, 260UL, 261UL, 5000UL}) {
        string.GrowToSize(size);
        EXPECT_EQ(string.capacity, size);
        while (string.length < size - 1) string.buffer[string.length++] = 'x';
        string.buffer[string.length] = 0;
        string.GrowToSize(size - 1);
        EXPECT_EQ(string.capacity, size) << "never shrinks";
    }
    for (unsigned i = 0; i < 4999; ++i) ASSERT_EQ(string.buffer[i], TypeParam{'x'});
    const TypeParam* buffer = string.buffer;
    other.GrowToSize(3);
    other.Assign(string);
    other.Assign(other);
    EXPECT_TRUE(other.buffer == buffer && other.length == 4999 && other.capacity == 5000);
    EXPECT_TRUE(string.buffer == nullptr && string.length == 0 && string.capacity == 0);
    const TypeParam text[] = {'a', 'b', 0};
    (string = text).Append(text + 1);
    EXPECT_EQ(string.buffer[2], TypeParam{'b'});
    EXPECT_EQ(string.buffer[string.length], TypeParam{0});
    if (sizeof(unsigned long) > 4) {
        EXPECT_THROW(string.GrowToSize(static_cast<unsigned long>(std::uint64_t{1} << 32)), std::bad_alloc);
    }
    EXPECT_EQ(string.capacity, 4U);
}

TEST(LongText, AssignsAndAppendsExactly) {
    LStringLongTemplate<char> string;
    const auto holds = [&string](const std::string& text) {
        return LUTF8StringLongRef(string).text == text && string.length == text.size() &&
               string.capacity == (string.buffer == nullptr ? 0 : text.size() + 1);
    };
    EXPECT_TRUE(holds(""));
    string.Append("");
    EXPECT_TRUE(holds("") && string.buffer != nullptr);
    (string = "path/name").Append("");
    EXPECT_TRUE(holds("path/name"));
    string = string.buffer + 5;
    EXPECT_TRUE(holds("name")) << "a text in the string's own buffer";
    string.Append(std::string(255, 'x').c_str());
    EXPECT_TRUE(holds("name" + std::string(255, 'x')));
    string = nullptr;
    EXPECT_TRUE(holds(""));
}

TEST(LongText, IsUnchangedWhenMemoryRunsOut) {
    LStringLongTemplate<char> string;
    string = "kept";
    const char* buffer = string.buffer;
    {
        const OutOfMemory none(0);
        EXPECT_THROW(string = "another text", std::bad_alloc);
        EXPECT_THROW(string.Append("more"), std::bad_alloc);
        EXPECT_THROW(string.sprintf("%s", "more"), std::bad_alloc);
    }
    EXPECT_EQ(string.buffer, buffer);
    EXPECT_STREQ(string.buffer, "kept");
    const std::string text(400, 't');
    {
        const OutOfMemory oneMore(1);
        EXPECT_THROW(string.tsprintfappend("%s", text.c_str()), std::bad_alloc);
    }
    EXPECT_EQ(string.capacity, 260U);
    EXPECT_EQ(string.length, 259U);
    EXPECT_EQ(string.buffer, "kept" + text.substr(0, 255)) << "what was printed so far, terminated";
}

TEST(Writers, QuadrupleWhenFullAndCutWhenFixed) {
    struct Row {
        unsigned long capacity, characters, expected;
    };
    for (const Row& row : {Row{0, 1, 260}, Row{1, 1, 4}, Row{1, 4, 16}, Row{260, 258, 260}, Row{260, 259, 260},
                           Row{260, 260, 1040}, Row{260, 300, 1040}, Row{261, 260, 261}, Row{261, 261, 1044}}) {
        LStringLongTemplate<char> string;
        string.GrowToSize(row.capacity);
        LStringLongTemplateWriter<char> writer(&string);
        for (unsigned long i = 0; i < row.characters; ++i) writer.AddChar('w');
        EXPECT_EQ(string.capacity, row.expected) << row.capacity << " + " << row.characters;
        EXPECT_EQ(string.buffer, std::string(row.characters, 'w'));
    }
    LStringLongTemplate<char> huge;  // pretends to be full at 2^30 elements, whose fourfold needs 33 bits
    char none = 0;
    huge.buffer = &none;
    huge.capacity = 1U << 30;
    huge.length = huge.capacity - 1;
    EXPECT_THROW(LStringLongTemplateAppender<char>(huge).AddChar('x'), std::bad_alloc);
    EXPECT_EQ(huge.length, huge.capacity - 1);
    huge.buffer = nullptr;
    char fixed[] = "....";
    LFixedLengthStringWriterTemplate<char> writer(fixed, 1, 3), nowhere(nullptr, 0, 9), full(fixed, 0, 0);
    for (const char c : {'a', 'b', 'c'}) writer.AddChar(c), nowhere.AddChar(c), full.AddChar(c);
    LStringLongTemplateWriter<char>(nullptr).AddChar('a');
    EXPECT_STREQ(fixed, ".ab.") << "no terminator";
    EXPECT_EQ(writer.length, 3U);
}

TEST(Helpers, MeasureAndCompare) {
    const unsigned short units[] = {0xD83D, 0xDE00, 0};
    EXPECT_TRUE(lstrlen(units) == 2 && lstrlen(units + 2) == 0);
    const std::pair<const char*, unsigned> numbers[] = {
        {"1fZ", 31},   {"", 0},   {"0x1", 0},     {"-1", 0}, {"fFfFfFfF", 0xFFFFFFFF}, {"123456789", 0x23456789},
        {"aAg", 0xAA}, {"9:", 9}, {"\xC3\xA9", 0}};
    for (const auto& [text, value] : numbers) {
        EXPECT_EQ(atoh(text), value) << text;
        EXPECT_EQ(wtoh(std::wstring(text, text + std::strlen(text)).c_str()), value) << text;
    }
    EXPECT_EQ(wtoh(L"1\x110031"), 1U);
    const auto sign = [](int result) { return (result > 0) - (result < 0); };
    const std::tuple<const char*, const char*, int> ends[] = {
        {"name.app", ".app", 0}, {"app", ".app", -1}, {"app", "", 0}, {"x.aaa", ".app", -1}, {"x.zzz", ".app", 1}};
    for (const auto& [text, suffix, result] : ends) EXPECT_EQ(sign(tstrcmpend(text, suffix)), result) << text;
    const std::tuple<const wchar_t*, const wchar_t*, int> pairs[] = {
        {L"ab", L"abc", 0}, {L"abd", L"abc", -1}, {L"abc", L"abd", -1}, {L"", L"x", 0}};
    for (const auto& [left, right, result] : pairs) EXPECT_EQ(wstrcmp(left, right), result) << left;
}

// Runs `helper` on `text` in place, in an array of exactly its size.
template <typename Helper>
std::string InPlace(const char* text, Helper helper) {
    std::vector<char> buffer(text, text + std::strlen(text) + 1);
    helper(buffer.data());
    return buffer.data();
}

TEST(Helpers, ChangeText) {
    struct Row {
        const char *text, *ampersand, *style, *menu;
    };
    for (const Row& row :
         {Row{"&File\tCtrl+F", "File\tCtrl+F", "&File\tCtrl+F", "File"}, Row{"a&&b&", "a&b", "a&&b&", "a&b"},
          Row{"&&&a", "&a", "&&&a", "&a"}, Row{"File(&F)...", "File(F)...", "File...", "File(F)..."},
          Row{"(&A)(x)(&B", "(A)(x)(B", "(x)", "(A)(x)(B"}, Row{"", "", "", ""}, Row{"&", "", "&", ""}}) {
        EXPECT_EQ(InPlace(row.text, [](char* text) { LStripAmpersand(text, text); }), row.ampersand);
        EXPECT_EQ(InPlace(row.text, [](char* text) { LPrepareForDisplay(text, text); }), row.ampersand);
        EXPECT_EQ(InPlace(row.text, [](char* text) { LStripJPStyleAmpersand(text, text); }), row.style);
        EXPECT_EQ(InPlace(row.text,
                          [](char* text) {
                              const bool hasTab = std::strchr(text, '\t') != nullptr;
                              const char* tab = LPrepareForMenuItem(text, text);
                              EXPECT_EQ(tab, hasTab ? text + std::strlen(text) : nullptr);
                          }),
                  row.menu);
    }
    char out[] = "xy";
    LStripAmpersand(out, nullptr);
    EXPECT_STREQ(out, "");
    LStripJPStyleAmpersand(strcpy(out, "x"), nullptr);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(InPlace("[`az{\xC3\xA9", strupr), "[`AZ{\xC3\xA9");
    EXPECT_EQ(InPlace("@AZ[\xC3\x89", strlwr), "@az[\xC3\x89");
    EXPECT_EQ(InPlace("a.b..", [](char* text) { LStringReplaceChar<char>(text, '.', '/'); }), "a/b//");
}

TEST(Helpers, RemoveAnItemOfAQuery) {
    const std::string longName(300, 'n');
    const std::string item = longName.substr(0, 260) + "=1&x=2", cut = "a=1&" + longName + "=1";
    struct Row {
        std::string name, query, left;
    };
    for (const Row& row :
         {Row{"b", "a=1&b=2&c=3", "a=1&c=3"}, Row{"c", "a=1&b=2&c=3", "a=1&b=2"}, Row{"a", "a=1&b=2&c=3", "&b=2&c=3"},
          Row{"d", "a=1", "a=1"}, Row{"a", "a=", ""}, Row{"b", "ab=1&b=2", "a&b=2"}, Row{"a", "", ""},
          Row{longName.substr(0, 260), item, "&x=2"}, Row{longName, cut, "a=1"}, Row{longName, item, item}}) {
        EXPECT_EQ(InPlace(row.query.c_str(), [&](char* query) { LRemoveHTTPItem(row.name.c_str(), query); }), row.left);
    }
}

TEST(Helpers, MakeAPasswordOfLetters) {
    for (const unsigned long count : {0UL, 39UL}) {
        char out[40];
        EXPECT_EQ(LStringGenerateRandomPassword(out, count), count);
        EXPECT_TRUE(std::strspn(out, "abcdefghijklmnopqrstuvwxyz") == count && out[count] == 0);
    }
}

}  // namespace
