#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>

#include "datetime/LDateTime.h"
#include "datetime/LDateTimeFields.h"
#include "local_zone.h"

namespace {

LDateTime Moment(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    LDateTime moment;
    LDateTime::SetDateTime(moment.seconds, year, month, day, hour, minute, second);
    return moment;
}

int64_t Utc(int64_t year, int64_t month, int64_t day, int64_t secondOfDay = 0) {
    return DaysFromCivil(year, month, day) * 86400 + secondOfDay;
}

/// The moment as it is kept: unset where `long` has no room for it.
int64_t Kept(int64_t moment) {
    return moment < LONG_MIN || moment > LONG_MAX ? 0 : moment;
}

TEST(Calendar, FollowsTheZonesRules) {
    std::mt19937_64 random(4);
    std::uniform_int_distribution<int64_t> moments(Utc(2009, 1, 2), Utc(2037, 12, 30));
    for (const ZoneRule& zone : kZones) {
        const LocalZone local(zone.name);
        for (int i = 0; i < 3000; ++i) {
            // Half of the moments lie within two hours of a change.
            int64_t moment = moments(random);
            if (i % 2 == 0 && zone.saving != 0) {
                moment =
                    Sunday(2010 + i % 27, zone.fromMonth, zone.fromSunday) * 86400 + zone.fromSecond + moment % 7200;
            }
            const int64_t wall = moment + zone.OffsetAt(moment);
            const LDateTime value(static_cast<long>(moment));
            ASSERT_EQ(value.GetDayTime().seconds, wall % 86400) << zone.name << " " << moment;
            ASSERT_EQ(value.GetWeekDay().mask, 1 << WeekDayOf(wall / 86400)) << zone.name << " " << moment;

            // Back from its fields; where the hour runs twice either of the two will do.
            std::tm fields;
            ASSERT_TRUE(LLocalFields(value.seconds, fields));
            ASSERT_EQ(DaysFromCivil(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday), wall / 86400);
            const LDateTime again = Moment(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                                           fields.tm_min, fields.tm_sec);
            ASSERT_EQ(again.seconds + zone.OffsetAt(again.seconds), wall) << zone.name << " " << moment;
        }
    }
}

TEST(Calendar, SetDateTimeCarriesOverAndReadsShortYears) {
    const LocalZone local("UTC");
    const struct {
        int year, month, day, hour;
        int64_t expected;
    } rows[] = {{15, 5, 1, 0, Utc(2015, 5, 1)},
                {69, 5, 1, 0, Utc(2069, 5, 1)},
                {70, 1, 2, 0, Utc(1970, 1, 2)},
                {115, 5, 1, 0, Utc(2015, 5, 1)},
                {1899, 5, 1, 0, Utc(3799, 5, 1)},
                {1900, 5, 1, 0, Utc(1900, 5, 1)},
                {-1, 5, 1, 0, Utc(1999, 5, 1)},
                {2015, 13, 1, 0, Utc(2016, 1, 1)},
                {2015, 0, 1, 0, Utc(2014, 12, 1)},
                {2015, 3, 0, 0, Utc(2015, 2, 28)},
                {2015, 5, 1, 24, Utc(2015, 5, 2)},
                {2015, 5, 1, -1, Utc(2015, 4, 30, 82800)},
                {2015, INT_MIN, 1, 0, Utc(2015 - 178956971, 4, 1)}};
    for (const auto& row : rows) {
        EXPECT_EQ(Moment(row.year, row.month, row.day, row.hour).seconds, Kept(row.expected))
            << row.year << "-" << row.month;
    }
    long kept = 17;
    EXPECT_FALSE(LDateTime::SetDateTime(kept, 1969, 12, 31, 23, 59, 59));  // -1, the mark of failure
    EXPECT_FALSE(LDateTime::SetDateTime(kept, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX));
    EXPECT_EQ(kept, 17);
}

TEST(Calendar, MonthLengthsAgreeWithTheDaysBetweenFirsts) {
    for (int year = 1600; year <= 2400; ++year) {
        for (int month = 1; month <= 12; ++month) {
            const int64_t next = month == 12 ? DaysFromCivil(year + 1, 1, 1) : DaysFromCivil(year, month + 1, 1);
            ASSERT_EQ(LDateTime::GetNumberOfDaysInMonth(year, month), next - DaysFromCivil(year, month, 1));
        }
    }
    for (int month : {0, 13, -1, INT_MIN}) EXPECT_EQ(LDateTime::GetNumberOfDaysInMonth(2015, month), 0);
}

TEST(Calendar, AdjustByMonthsKeepsTheDayWhereItCan) {
    const LocalZone local("Europe/Berlin");
    const struct {
        LDateTime from;
        int months;
        LDateTime expected;
    } rows[] = {{Moment(2015, 1, 31, 9, 3, 7), 1, Moment(2015, 2, 28, 9, 3, 7)},
                {Moment(2016, 3, 31, 23, 59, 59), -1, Moment(2016, 2, 29, 23, 59, 59)},
                {Moment(2015, 3, 15, 12), -3, Moment(2014, 12, 15, 12)},
                {Moment(2014, 12, 15), 12, Moment(2015, 12, 15)},
                {Moment(2015, 1, 15), -13, Moment(2013, 12, 15)},
                {Moment(2015, 1, 15, 8), 6, Moment(2015, 7, 15, 8)},  // into daylight time
                {Moment(2015, 1, 15), INT_MAX, Moment(2015 + 178956970, 8, 15)},
                {LDateTime(LONG_MAX), 1, LDateTime()}};
    for (const auto& row : rows) EXPECT_EQ(row.from.AdjustByMonths(row.months), row.expected) << row.months;
}

TEST(Calendar, SetDayTimeReachesLaterDays) {
    for (const ZoneRule& zone : kZones) {
        const LocalZone local(zone.name);
        LDateTime value = Moment(2015, 5, 1, 17, 30);
        EXPECT_TRUE(value.SetDayTime(LDayTime(90000)));
        EXPECT_EQ(value, Moment(2015, 5, 2, 1)) << zone.name;
        EXPECT_TRUE(value.SetDayTime(LDayTime(47109)));
        EXPECT_EQ(value.GetDayTime().seconds, 47109) << zone.name;
    }
    LDateTime today;
    EXPECT_TRUE(today.SetDayTime(LDayTime(3600)));
    EXPECT_EQ(today.GetDayTime().seconds, 3600);
    EXPECT_NEAR(static_cast<double>(today.seconds), static_cast<double>(LCurrentSeconds()), 86400.0);
    EXPECT_EQ(LDateTime().GetDayTime().seconds, 0);

    LDateTime kept = Moment(2015, 5, 1);
    EXPECT_FALSE(kept.SetDayTime(LDayTime(LONG_MAX)));  // more hours than `int` holds, or a day beyond `long`
    EXPECT_EQ(kept, Moment(2015, 5, 1));
}

TEST(Calendar, ScheduleDetails) {
    constexpr LDayTime kTen(36000), kTwelve(43200), kLate(79200), kTwo(7200), kOne(3600), kNine(32400);
    constexpr LWeekDay kWorkdays(62), kSunday(1), kMonday(2);
    const struct {
        LDayTime time;
        LWeekDay day;
        long start, end;  // the moment is 1000
        LDayTime windowStart, windowEnd;
        bool expected;
    } rows[] = {{kTen, kMonday, 0, 0, kNine, kTwelve, true},     {kTen, kSunday, 0, 0, kNine, kTwelve, false},
                {kTen, kMonday, 1000, 0, kNine, kTwelve, true},  {kTen, kMonday, 1001, 0, kNine, kTwelve, false},
                {kTen, kMonday, 0, 1000, kNine, kTwelve, false}, {kTen, kMonday, 0, 1001, kNine, kTwelve, true},
                {kTen, kMonday, 0, -5, kNine, kTwelve, true},    {kNine, kMonday, 0, 0, kNine, kTwelve, true},
                {kTwelve, kMonday, 0, 0, kNine, kTwelve, false}, {kNine, kMonday, 0, 0, kNine, kNine, false},
                {kLate, kMonday, 0, 0, kLate, kTwo, true},       {kOne, kMonday, 0, 0, kLate, kTwo, true},
                {kTwo, kMonday, 0, 0, kLate, kTwo, false},       {kTwelve, kMonday, 0, 0, kLate, kTwo, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(LDateTime::TestScheduleDetails(LDateTime(1000), row.time, row.day, LDateTime(row.start),
                                                 LDateTime(row.end), row.windowStart, row.windowEnd, kWorkdays),
                  row.expected)
            << "row " << &row - rows;
    }
}

TEST(Calendar, BuildDate) {
    const LocalZone local("Asia/Kathmandu");
    EXPECT_EQ(LBuildDateFromText("May  1 2015"), Moment(2015, 5, 1));
    EXPECT_EQ(LBuildDateFromText("Dec 31 2026"), Moment(2026, 12, 31));
    EXPECT_EQ(LBuildDateFromText("dec 31 2026"), Moment(2025, 12, 31));  // no month counts as month 0
    EXPECT_EQ(LDateTime::GetBuildDate(), LBuildDateFromText(__DATE__));
}

}  // namespace
