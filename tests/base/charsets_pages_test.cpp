#include <gtest/gtest.h>

#include <string>

#include "base/LCharsets.h"
#include "guarded.h"

namespace {

using Units = std::basic_string<unsigned short>;
using FixedCopy = void (*)(char*, const char*, unsigned long);
using LongCopy = void (*)(LStringLongTemplate<char>&, const LStringLongTemplate<char>&);

TEST(Charsets, CodePagesFixedAndLong) {
    const char euroInCyrillic[] = "a\xE2\x82\xAC";  // the euro sign, which no page here has
    const struct {
        FixedCopy copy;
        LongCopy longCopy;
        const char* in;
        const char* whole;
        unsigned long size;  // and what this many bytes hold
        const char* cut;
    } rows[] = {
        {LCopyFromISO88591, LCopyFromISO88591, "a\xE9\xE9", "a\u00E9\u00E9", 5, "a\u00E9"},
        {LCopyToISO88591, LCopyToISO88591, "a\u00E9\u00E9", "a\xE9\xE9", 3, "a\xE9"},
        {LCopyFromWIN1252, LCopyFromWIN1252, "\x80", "\u0080", 2, ""},
        {LCopyToWIN1252, LCopyToWIN1252, euroInCyrillic, "a", 1, ""},
        {LCopyFromISO88595, LCopyFromISO88595, "\xB0z", "\u0410z", 4, "\u0410z"},
        {LCopyToISO88595, LCopyToISO88595, "\u0410\u00E9z", "\xB0", 2, "\xB0"},
        {LCopyToISO88591, LCopyToISO88591, "ab\xC3", "ab", 9, "ab"},
        {LCopyFromSHIFTJIS932, LCopyFromSHIFTJIS932, "\x83\x41z", "\x83\x41z", 2, "\x83"},
        {LCopyToSHIFTJIS932, LCopyToSHIFTJIS932, "\xFF", "\xFF", 2, "\xFF"},
        {LCopyFromEUCKR, LCopyFromEUCKR, "\xB0\xA1", "\xB0\xA1", 1, ""},
        {LCopyToEUCKR, LCopyToEUCKR, "", "", 1, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.in);
        LStringLongTemplate<char> in, out;
        row.longCopy(out, in = row.in);
        EXPECT_STREQ(out.buffer, row.whole);
        EXPECT_EQ(out.length, std::string(row.whole).size());
        Guarded<char> fixed(row.size);
        row.copy(fixed.data(), row.in, row.size);
        EXPECT_STREQ(fixed.data(), row.cut);
        row.copy(fixed.last(0), row.in, 0);
    }
}

TEST(Charsets, CopiesAsLargeAsTheInput) {
    Guarded<char> out(4);
    LCopyFromISO88591(out.last(4), "a\xE9\xE9");
    EXPECT_STREQ(out.last(4), "a\u00E9");  // the second would leave no place for the terminator
    LCopyToISO88591(out.last(3), "\u00E9");
    EXPECT_STREQ(out.last(3), "\xE9");
    LCopyIconvFixedLength(out.data(), "abc", 4, "no such page", "UTF-8");
    EXPECT_STREQ(out.data(), "");
}

TEST(Charsets, LongStringsTakeTheirLength) {
    LStringLongTemplate<char> in, out;
    LStringLongTemplate<unsigned short> units;
    EXPECT_EQ(LCopyUnicodeFromUTF8(units, in), 0u);  // neither has a buffer yet
    in = "a\u00E9\u20AC";
    EXPECT_EQ(LCopyUnicodeFromUTF8(units, in), 3u);
    EXPECT_EQ(Units(units.buffer), (Units{'a', 0xE9, 0x20AC}));
    EXPECT_EQ(units.capacity, in.length + 1);
    EXPECT_EQ(LCopyUTF8FromUnicode(out, units), 6u);
    EXPECT_STREQ(out.buffer, in.buffer);
    EXPECT_EQ(out.capacity, 6 * 3 + 1u);
    in = "a\xF0\x90\x80\x80z";  // a character whose low 16 bits are zero ends the text
    EXPECT_EQ(LCopyUnicodeFromUTF8(units, in), 1u);
    EXPECT_EQ(LCopyFromUnicode(out, Units(5000, 0x20AC).c_str()), 15000u);
}

TEST(Charsets, Ansi) {
    LStringLongTemplate<char> ansi, utf8;
    LStringLongTemplate<unsigned short> units;
    utf8 = "caf\u00E9";
    LCopyUnicodeFromUTF8(units, utf8);
    EXPECT_EQ(LCopyAnsiFromUnicode(ansi, units), 4u);
    EXPECT_STREQ(ansi.buffer, "caf\xE9");
    EXPECT_EQ(LCopyUnicodeFromAnsi(units, ansi), 4u);
    EXPECT_EQ(Units(units.buffer), (Units{'c', 'a', 'f', 0xE9}));
    ansi = "\x80";
    EXPECT_EQ(LCopyUnicodeFromAnsi(units, ansi), 1u);
    EXPECT_EQ(units.buffer[0], 0x20AC);
    EXPECT_EQ(LCopyAnsiFromUnicode(ansi, units.buffer), 0u);  // ISO Latin 1 has no euro sign

    const auto fixed = [](FixedCopy copy, const std::string& in, unsigned long size) {
        Guarded<char> out(size);
        copy(out.data(), in.c_str(), size);
        return std::string(out.data());
    };
    const struct {
        FixedCopy copy;
        const char* in;
        unsigned long size;
        const char* out;
    } rows[] = {{LCopyAnsiFromUTF8, "\u00E9\u00E9", 5, "\xE9\xE9"},
                {LCopyAnsiFromUTF8, "\u00E9\u00E9", 4, "\xE9"},
                {LCopyAnsiFromUTF8, "a\u20AC", 9, ""},
                {LCopyUTF8FromAnsi, "a\x80", 5, "a\u20AC"},
                {LCopyUTF8FromAnsi, "a\x80", 4, "a"},
                {LCopyUTF8FromAnsi, "ab", 1, ""}};
    for (const auto& row : rows) {
        EXPECT_EQ(fixed(row.copy, row.in, row.size), row.out);
        row.copy(nullptr, row.in, 0);
    }
    for (const size_t length : {4094u, 4095u, 4096u, 4097u, 9000u}) {  // around what the stack holds
        const std::string text(length, 'x');
        EXPECT_EQ(fixed(LCopyAnsiFromUTF8, text, length + 1), text);
        EXPECT_EQ(fixed(LCopyUTF8FromAnsi, text, length + 1), text);
    }
}

}  // namespace
