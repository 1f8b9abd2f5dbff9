#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "datetime/LDateTime.h"
#include "datetime/LDateTimeFields.h"
#include "local_zone.h"

namespace {

template <typename Write>
std::string Written(Write write) {
    char buffer[260];
    std::fill(std::begin(buffer), std::end(buffer), '#');
    write(buffer);
    return buffer;
}

std::string Full(long seconds) {
    return Written([&](char* out) { LDateTime(seconds).GetDateTime(out); });
}

TEST(DateText, EveryFormInEveryZone) {
    for (const ZoneRule& zone : kZones) {
        const LocalZone local(zone.name);
        LDateTime value;
        LDateTime::SetDateTime(value.seconds, "2015-05-01", "09:03:07");
        const auto of = [&](void (LDateTime::*form)(char*) const) {
            return Written([&](char* out) { (value.*form)(out); });
        };
        const auto ofStatic = [&](void (*form)(long, char*)) {
            return Written([&](char* out) { form(value.seconds, out); });
        };
        for (const bool set : {true, false}) {
            if (!set) value = LDateTime();
            EXPECT_EQ(of(&LDateTime::GetDateInLocalFormat), set ? "2015-05-01" : "") << zone.name;
            EXPECT_EQ(of(&LDateTime::GetTimeInLocalFormat), set ? "09:03:07" : "");
            EXPECT_EQ(of(&LDateTime::GetDateTimeInLocalFormat), set ? "2015-05-01 09:03:07" : " ");
            EXPECT_EQ(of(&LDateTime::GetDateTime), set ? "2015-05-01 09:03:07" : " ");
            EXPECT_EQ(of(&LDateTime::GetDateYYYYHMMHDDTimeHHCMM), set ? "2015-05-01 09:03" : " ");
            EXPECT_EQ(of(&LDateTime::_GetTextTime), set ? "09:03:07" : "");
            EXPECT_EQ(ofStatic(&LDateTime::GetTimeHHCMM), set ? "09:03" : "");
            EXPECT_EQ(ofStatic(&LDateTime::GetTimeHHHMMHSS), set ? "09-03-07" : "");
            EXPECT_EQ(of(&LDateTime::GetDateLocalFormat), set ? "05/01/15" : "");  // the C locale's %m/%d/%y
        }
    }
}

TEST(DateText, MomentsWithoutAFourDigitYearOrACalendarForm) {
    const LocalZone local("UTC");
    if (sizeof(long) < 8) {  // every moment has both; the first and the last of them
        EXPECT_EQ(Full(LONG_MIN), "1901-12-13 20:45:52");
        EXPECT_EQ(Full(LONG_MAX), "2038-01-19 03:14:07");
        return;
    }
    EXPECT_EQ(Full(static_cast<long>(DaysFromCivil(9999, 12, 31) * 86400)), "9999-12-31 00:00:00");
    EXPECT_EQ(Full(static_cast<long>(DaysFromCivil(0, 1, 1) * 86400)), "0000-01-01 00:00:00");
    EXPECT_EQ(Full(static_cast<long>(DaysFromCivil(10000, 1, 1) * 86400)), " 00:00:00");
    EXPECT_EQ(Full(static_cast<long>(DaysFromCivil(-1, 12, 31) * 86400)), " 00:00:00");
    EXPECT_EQ(Full(LONG_MAX), " ");
    EXPECT_EQ(Full(LONG_MIN), " ");
}

TEST(DateText, SetDateTimeReadsUpToTheFirstMismatch) {
    const LocalZone local("America/New_York");
    const char* const rows[][3] = {{"15-5-1", "", "2015-05-01 00:00:00"},
                                   {"2015-05-01xyz", "9:3", "2015-05-01 09:03:00"},
                                   {"2015", "x", "2015-01-01 00:00:00"},
                                   {"2015 -7-3", "1 :2", "2015-01-01 01:00:00"},
                                   {" 2015- 7-\t+3", " 1: 2", "2015-07-03 01:02:00"},
                                   {"2015--1-1", nullptr, "2014-11-01 00:00:00"},
                                   {"2015-02-30", "25:61:61", "2015-03-03 02:02:01"},
                                   {"", "10:00:00", " "},
                                   {nullptr, nullptr, " "}};
    for (const auto& [date, time, expected] : rows) {
        long seconds = 5;
        EXPECT_TRUE(LDateTime::SetDateTime(seconds, date, time));
        EXPECT_EQ(Full(seconds), expected);
    }
    const char* const joined[][2] = {{"2015-05-01 09:03:07", "2015-05-01 09:03:07"},
                                     {"2015-05-01T09:03", "2015-05-01 09:03:00"},
                                     {"2015-05-01 ", "2015-05-01 00:00:00"},
                                     {"2015-5-1", "2015-05-01 00:00:00"},
                                     {nullptr, " "}};
    for (const auto& [text, expected] : joined) {
        long seconds = 5;
        EXPECT_TRUE(LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(seconds, text));
        EXPECT_EQ(Full(seconds), expected);
    }
}

TEST(DateText, NumbersAreReadAsTheCLibraryReadsThem) {
    std::mt19937 random(7);
    for (int i = 0; i < 100000; ++i) {
        std::string text;
        const size_t length = random() % 10;  // no number leaves `int`
        while (text.size() < length) text += "0159-- +\tx:"[random() % 11];
        int expected[3] = {-7, -7, -7};
        int found[3] = {-7, -7, -7};
        std::sscanf(text.c_str(), "%d-%d-%d", &expected[0], &expected[1], &expected[2]);
        const char* at = text.c_str();
        LScanThree(at, '-', found[0], found[1], found[2]);
        ASSERT_TRUE(std::equal(expected, expected + 3, found)) << '"' << text << '"';
    }
    for (const auto& [number, expected] : std::map<const char*, int>{{"2147483648", INT_MAX},
                                                                     {"99999999999999999999", INT_MAX},
                                                                     {"-2147483649", INT_MIN},
                                                                     {"-2147483640", -2147483640}}) {
        int value = 5;
        const char* at = number;
        EXPECT_TRUE(LScanInt(at, value));
        EXPECT_EQ(value, expected) << number;
    }
}

TEST(DateText, Validation) {
    for (const char* good : {"2016-02-29 00:00:00", "1970-01-01 00:00:00", "2038-12-31 23:59:59",
                             "2015-05-01 \t 1:2:3x", "2015-05-01+1:2:3"}) {
        EXPECT_TRUE(LDateTime::ValidateDateYYYYHMMHDD(good)) << good;
        EXPECT_TRUE(LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(good)) << good;
    }
    for (const char* dateOnly : {"", "2015-05-01", "2015-05-01 24:00:00", "2015-05-01 23:60:00", "2015-05-01 23:59:60",
                                 "2015-05-01 23:59", "2015-05-01 -1:00:00", "2015-05-01T10:00:00"}) {
        EXPECT_TRUE(LDateTime::ValidateDateYYYYHMMHDD(dateOnly)) << dateOnly;
        EXPECT_FALSE(LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(dateOnly)) << dateOnly;
    }
    for (const char* bad : {"2015-02-29 10:00:00", "1969-12-31 10:00:00", "2039-01-01 00:00:00", "2015-13-01 10:00:00",
                            "2015-05", "15-05-01 10:00:00", "2015-05-4294967297 10:00:00", "x"}) {
        EXPECT_FALSE(LDateTime::ValidateDateYYYYHMMHDD(bad)) << bad;
        EXPECT_FALSE(LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(bad)) << bad;
    }
    EXPECT_TRUE(LDateTime::ValidateDateYYYYHMMHDD(nullptr));
    EXPECT_FALSE(LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(nullptr));
}

TEST(DateText, SetTextTime) {
    const LocalZone local("Europe/Berlin");
    const char* const rows[][2] = {{"7:30", "07:30:00"},     {"1:2:3:4", "01:02:03"}, {"::59", "00:00:59"},
                                   {"a1b2:3-0", "12:30:00"}, {"2.3:15", "23:15:00"},  {nullptr, "00:00:00"}};
    for (const auto& [text, expected] : rows) {
        LDateTime value;
        LDateTime::SetDateTime(value.seconds, "2015-05-01", "12:00:00");
        EXPECT_TRUE(value._SetTextTime(text));
        EXPECT_EQ(Full(value.seconds), std::string("2015-05-01 ") + expected);
    }
    LDateTime unset;
    EXPECT_FALSE(unset._SetTextTime("7:30"));
    EXPECT_EQ(unset, LDateTime());
}

}  // namespace
