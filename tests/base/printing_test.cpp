// Formatted printing against the C library where it is asked, by table where it is not, and at every boundary.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>
#include <utility>

#include "base/LPrint.h"

namespace {

template <typename... Arguments>
std::string Print(const char* format, Arguments... arguments) {
    LStringLongTemplate<char> string;
    EXPECT_EQ(string.sprintf(format, arguments...), string.length);
    EXPECT_EQ(string.buffer[string.length], 0);
    return string.buffer;
}

// Widths and precisions around the 259 characters that are kept of a conversion, too.
TEST(Printing, AgreesWithTheCLibrary) {
    const auto check = [](const std::string& format, auto value) {
        char expected[5000];
        std::snprintf(expected, sizeof expected, format.c_str(), value);
        EXPECT_EQ(Print((format + "|").c_str(), value), std::string(expected).substr(0, 259) + "|") << format;
    };
    for (const std::string size :
         {"",     "1",   "5",   "05",  "20",      "020",  ".",    ".0",   ".3",   ".20",  "9.4",  "3.9",  "0.",
          "09.4", "258", "259", "260", "0100.60", "0261", "4096", ".258", ".259", ".260", ".261", ".4096"}) {
        for (const int value : {0, 1, 65, -42, INT_MAX, INT_MIN}) {
            for (const char conversion : {'d', 'i', 'o', 'u', 'x', 'X'}) check("%" + size + conversion, value);
            for (const char conversion : {'e', 'f', 'g'}) check("%" + size + conversion, value * 1e90 / 3);
        }
        check("%" + size + 'c', 65);
    }
}

TEST(Printing, KeepsToItsOwnRules) {
    const char* null = nullptr;
    EXPECT_EQ(Print("%s_%u", "take", 0U), "take_0");
    EXPECT_EQ(Print("%10.2s|%s|%s", "text", null, "x"), "text||x");
    EXPECT_EQ(Print("100%%%5%%"), "100%%");
    EXPECT_EQ(Print("%c|%3c|", 0, 0), "|  |") << "a printed zero ends its conversion";
    EXPECT_EQ(Print("%d %.3f %s %x %e", -1, 2.5, "s", 255U, 0.0), "-1 2.500 s ff 0.000000e+00");
    // Unknown conversions write nothing and take one 32-bit value; the rest of the text stays in step.
    for (const char* unknown :
         {"%n", "%p", "%S", "%E", "%G", "%a", "%-", "%+", "%#", "%*", "% ", "%l", "%5\xC3", "%1.2.3d"}) {
        EXPECT_EQ(Print((std::string("<") + unknown + "%d>").c_str(), 1, 2), "<2>") << unknown;
    }
    for (const char* unfinished : {"%", "%5", "%05.2", "%."}) {
        EXPECT_EQ(Print((std::string("a%d") + unfinished).c_str(), 1), "a1") << unfinished;
    }
}

TEST(Printing, KnowsNumbersOfAnyLength) {
    EXPECT_EQ(Print("%99999999999999999999d|", 1), std::string(259, ' ') + "|");
    EXPECT_EQ(Print("%.99999999999999999999x|", 1), std::string(259, '0') + "|");
    const std::string zeros(256, '0');
    EXPECT_EQ(Print(("%" + zeros + "5d").c_str(), 42), "00042") << "257 digits are kept";
    EXPECT_EQ(Print(("%0" + zeros + "5d").c_str(), 42), "42") << "the 258th is dropped";
}

TEST(Printing, CutsAtTheEndOfFixedTargets) {
    for (const size_t length : {0U, 3U, 258U, 259U, 260U, 261U, 300U}) {
        const std::string text(length, 't');
        const LStringShortTemplate<char> shortString(LStringPrintFormatTemplate<char>("%s"), text.c_str());
        EXPECT_EQ(shortString.text, text.substr(0, 259));
        for (const unsigned long size : {1UL, 2UL, 258UL, 259UL, 260UL, 261UL}) {
            std::string out(size, '#');
            const unsigned long written = std::min<unsigned long>(length, size - 1);
            EXPECT_EQ(tplsnprintf(out.data(), size, "%s", text.c_str()), written);
            EXPECT_EQ(std::string(out.c_str()), text.substr(0, size - 1));
        }
    }
    char out[8] = "kept";
    EXPECT_EQ(tplsnprintf(out, 0, "%s", "text"), 0U);
    EXPECT_STREQ(out, "kept");
    EXPECT_EQ(tplsnprintf(out, 8, nullptr), 0U);
    EXPECT_STREQ(out, "");
    LFixedLengthStringWriterTemplate<char> writer(out, 0, 7);
    EXPECT_EQ(sprintf(writer, "%s%d", "abc", 12), 5U);
    EXPECT_EQ(sprintf(writer, "%s", "defg"), 7U) << "goes on where it stood, and is cut";
    EXPECT_EQ(std::string(out, 7), "abc12de");
}

TEST(Printing, FillsAndAppendsToLongStrings) {
    LStringLongTemplate<char> string;
    string = "a";
    EXPECT_EQ(tsprintfappend(string, "b%d", 7), 3U);
    EXPECT_STREQ(string.buffer, "ab7");
    EXPECT_EQ(string.tsprintfappend(nullptr), 3U);
    EXPECT_EQ(sprintf(string, "%s", std::string(300, 'x').c_str()), 300U);
    EXPECT_EQ(string.capacity, 1040U);
    EXPECT_EQ(sprintf(string, nullptr), 0U);
    EXPECT_STREQ(string.buffer, "");
}

TEST(Printing, StandardOutputIsTheCLibrarys) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(tprintf("%-5ld|%s\n", 42L, "x"), 8);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "42   |x\n");
}

}  // namespace
