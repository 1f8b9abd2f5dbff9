// The parts of schedulectl that need no helper: what people write for moments and days, the coming starts across
// changes of the clocks, and what a terminal shows.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <clocale>

#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Schedule.h"
#include "tools/schedulectl/Screen.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/Week.h"
#include "tools/schedulectl/When.h"

using namespace schedulectl;

namespace {

void UseZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

Moment Local(const char* zone, int year, int month, int day, int hour, int minute, int second = 0) {
    UseZone(zone);
    return MomentAt({year, month, day, hour, minute, second, 0}).value();
}

Schedule Repeated(Moment asked, bool daily, unsigned char mask) {
    Schedule schedule;
    schedule.start.seconds = static_cast<long>(asked - earlySeconds);
    schedule.daily = daily;
    schedule.weekly = !daily;
    schedule.weekDays.mask = mask;
    return schedule;
}

}  // namespace

TEST(When, IsReadInTheZoneOfTheProcess) {
    const struct {
        const char* zone;
        const char* text;
        const char* expected;
    } rows[] = {
        // Now is Monday 23 November 2026, 12:00 by the clock of each zone.
        {"UTC", "13:00", "2026-11-23T13:00:00+00:00"},
        {"UTC", "9:05:07", "2026-11-24T09:05:07+00:00"},
        {"UTC", "12:00", "2026-11-24T12:00:00+00:00"},
        {"UTC", "today 9:00", "2026-11-23T09:00:00+00:00"},
        {"UTC", "Tomorrow  7:30", "2026-11-24T07:30:00+00:00"},
        {"UTC", "mon 9:00", "2026-11-30T09:00:00+00:00"},
        {"UTC", "monday 13:00", "2026-11-23T13:00:00+00:00"},
        {"UTC", "midnight", "2026-11-24T00:00:00+00:00"},
        {"UTC", "fri noon", "2026-11-27T12:00:00+00:00"},
        {"UTC", "+15min", "2026-11-23T12:15:00+00:00"},
        {"UTC", "+1h30min", "2026-11-23T13:30:00+00:00"},
        {"UTC", "+ 2 weeks", "2026-12-07T12:00:00+00:00"},
        {"UTC", "@1798131600", "2026-12-24T17:00:00+00:00"},
        {"Europe/Berlin", "2026-12-24 18:00", "2026-12-24T18:00:00+01:00"},
        {"Europe/Berlin", "2026-12-24T18:00Z", "2026-12-24T19:00:00+01:00"},
        {"Europe/Berlin", "2027-07-01T18:00:30-03:30", "2027-07-01T23:30:30+02:00"},
        {"Europe/Berlin", "2026-10-25 02:30", "2026-10-25T02:30:00+02:00"},  // shown twice: the earlier one
        {"Pacific/Chatham", "tomorrow 0:00", "2026-11-24T00:00:00+13:45"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.text);
        const Moment now = Local(row.zone, 2026, 11, 23, 12, 0);
        EXPECT_EQ(row.expected, FormatIso(ParseWhen(row.text, now).moment));
    }
}

TEST(When, RefusesWhatItCannotRead) {
    const Moment now = Local("Europe/Berlin", 2026, 11, 23, 12, 0);
    const std::vector<std::string_view> refused[] = {
        {"", " ", "24:00", "9:60", "9:5", "9", "09:00pm", "tomorrow", "yesterday 9:00", "2026-12-24"},
        {"2026-02-29 10:00", "2026-13-01 10:00", "1969-12-31 23:00", "2027-03-28 02:30"},
        {"2026-12-24 18:00 sharp", "2026-12-24 18:00+25:00"},
        {"+5", "+min", "+5 fortnights", "+99999999999999999999s", "@x"}};
    for (const auto& kind : refused) {
        for (const std::string_view text : kind) EXPECT_THROW((void)ParseWhen(text, now), Failure) << text;
    }
    EXPECT_EQ(12, ParseWhen("@12 ", now).moment);  // blanks around are no fault
}

TEST(Days, GoToASetAndBackToText) {
    const struct {
        const char* text;
        unsigned mask;
        const char* shown;
    } rows[] = {{"mon-fri", 0x3E, "Mon-Fri"},      {"sat,sun", 0x41, "Sat, Sun"},     {"Weekdays", 0x3E, "Mon-Fri"},
                {"weekend", 0x41, "Sat, Sun"},     {"fri-mon", 0x63, "Mon, Fri-Sun"}, {"tu, th", 0x14, "Tue, Thu"},
                {"mon\u2013wed", 0x0E, "Mon-Wed"}, {"all", 0x7F, "every day"},        {"sun", 0x01, "Sun"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(row.mask, ParseDays(row.text));
        EXPECT_EQ(row.shown, FormatDays(row.mask));
    }
    for (const char* text : {"", "m", "mon,", "mon-", "-fri", "mond-fri-sat", "montag"})
        EXPECT_THROW((void)ParseDays(text), Failure) << text;
}

TEST(ComingStarts, KeepTheirIntervalWhenClocksChange) {
    // Armed on Saturday 24 October 2026 in summer time; clocks go back in the night to Sunday.
    const Moment armed = Local("Europe/Berlin", 2026, 10, 24, 12, 0);
    const Schedule daily = Repeated(Local("Europe/Berlin", 2026, 7, 1, 9, 0), true, 0);
    const auto starts = ComingStarts(daily, armed, armed, 3);
    ASSERT_EQ(3U, starts.size());
    EXPECT_EQ("2026-10-25T07:59:50+01:00", FormatIso(starts[0].likely));
    EXPECT_EQ("2026-10-25T09:00:00+01:00", FormatIso(starts[0].asked));
    EXPECT_EQ(-3600, starts[0].moved());
    EXPECT_EQ(daySeconds, starts[2].likely - starts[1].likely);

    // Armed again after the change, it starts where it should.
    const Moment later = Local("Europe/Berlin", 2026, 10, 26, 12, 0);
    EXPECT_EQ(0, ComingStarts(daily, later, later, 1).at(0).moved());
    // Looked at long after it was armed, the phase is still that of the arming.
    EXPECT_EQ(-3600, ComingStarts(daily, armed, later, 1).at(0).moved());
}

TEST(ComingStarts, OfWeeklySchedules) {
    const Moment now = Local("America/New_York", 2026, 11, 23, 9, 0);  // a Monday
    const auto workdays = ComingStarts(Repeated(now, false, 0x3E), now, now, 6);
    ASSERT_EQ(6U, workdays.size());
    EXPECT_EQ("2026-11-24T08:59:50-05:00", FormatIso(workdays[0].likely));  // today's is over by ten seconds
    EXPECT_EQ("2026-11-30T08:59:50-05:00", FormatIso(workdays[4].likely));
    EXPECT_TRUE(ComingStarts(Repeated(now, false, 0x80), now, now, 1).empty());

    const Schedule early = Repeated(Local("America/New_York", 2026, 11, 29, 0, 0, 5), false, 0x01);
    EXPECT_TRUE(StartsADayLate(early));
    const Start start = ComingStarts(early, now, now, 1).at(0);
    EXPECT_EQ("2026-11-29T23:59:55-05:00", FormatIso(start.likely));
    EXPECT_EQ("2026-11-29T00:00:05-05:00", FormatIso(start.asked));
    EXPECT_FALSE(StartsADayLate(Repeated(Local("America/New_York", 2026, 11, 29, 0, 0, 10), false, 0x01)));
}

TEST(Outlook, SaysWhyNothingStarts) {
    const Moment now = Local("UTC", 2026, 11, 23, 12, 0);
    const Application good{true, "2.13", true, false};
    const Situation running{now, true, now - 3600};
    const auto once = [](Moment asked) {
        Schedule schedule;
        schedule.start.seconds = static_cast<long>(asked - earlySeconds);
        return schedule;
    };
    const struct {
        Schedule schedule;
        Application application;
        Situation situation;
        const char* part;
    } rows[] = {{once(now - 7200), good, running, "had passed when the helper loaded it"},
                {once(now - 600), good, running, "fell due 10 min ago"},
                {once(now - 600), good, {now, false, {}}, "missed starts are not made up"},
                {Repeated(now, false, 0), good, running, "no weekday"},
                {Repeated(now, true, 0), {false, "", false, false}, running, "application is gone"},
                {Repeated(now, true, 0), {true, "2.14", false, false}, running, "has version 2.14"}};
    for (const auto& row : rows) {
        const Outlook outlook = LookAt(row.schedule, row.application, row.situation, nullptr);
        EXPECT_FALSE(outlook.next);
        EXPECT_NE(std::string::npos, outlook.never.find(row.part)) << outlook.never;
    }
    EXPECT_TRUE(LookAt(once(now + 600), good, running, nullptr).next);
}

TEST(Text, IsMeasuredAndCutByColumns) {
    setlocale(LC_CTYPE, "C.UTF-8");
    const struct {
        const char* text;
        size_t width;
        const char* cutToFive;
    } rows[] = {{"Orvin", 5, "Orvin"},
                {"Orvins", 6, "Orvi\u2026"},
                {"\u6771\u4eac\u4f1a", 6, "\u6771\u4eac\u2026"},
                {"e\u0301t\u00e9", 3, "e\u0301t\u00e9"},
                {"", 0, ""}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.width, DisplayWidth(row.text)) << row.text;
        EXPECT_EQ(row.cutToFive, CutToWidth(row.text, 5, true)) << row.text;
        EXPECT_EQ(std::max<size_t>(row.width, 8), DisplayWidth(Pad(row.text, 8))) << row.text;
    }
}

TEST(Text, FromTheStoreCannotMoveTheCursor) {
    EXPECT_EQ("a\\x1B[2Jb\\n", Printable("a\033[2Jb\n"));
    EXPECT_EQ("\\xC3\\x28\\xFF", Printable("\xC3\x28\xFF").replace(4, 1, "\\x28"));
    EXPECT_EQ("\\xED\\xA0\\x80", Printable("\xED\xA0\x80"));  // a surrogate
    EXPECT_EQ("\\u{202E}gpj", Printable("\u202Egpj"));
    EXPECT_EQ("\\xC0\\xAF", Printable("\xC0\xAF"));  // an overlong form
}

TEST(Text, SuggestsWhatIsNear) {
    const std::vector<std::string> known{"Standup", "standup", "Evening backup", "Tea"};
    EXPECT_EQ((std::vector<std::string>{"Standup", "standup"}), Likely("stadnup", known));
    EXPECT_EQ(std::vector<std::string>{"Evening backup"}, Likely("even", known));
    EXPECT_TRUE(Likely("Lunch", known).empty());
}

TEST(Week, PutsStartsWhereTheyFall) {
    const Moment now = Local("UTC", 2026, 11, 23, 9, 30);
    const std::vector<WeekLine> lines{{"Tea", "daily at 15:00", {now + 6 * 3600, now + daySeconds}},
                                      {"Run", "once", {now + 6 * 3600 + 60}}};
    const std::string text = RenderWeek(lines, now, Screen(40, false, false));
    const std::string expected =
        "            0  3  6  9  12 15 18 21\n"
        "Mon 23 Nov           >  .  2  .  .\n"
        "Tue 24 Nov  .  .  .  A  .  .  .  .\n"
        "Wed 25 Nov  .  .  .  .  .  .  .  .\n";
    EXPECT_EQ(expected, text.substr(0, expected.size()));
}

TEST(Table, FitsTheScreen) {
    Table table({{"NAME", false, 6}, {"WHEN"}});
    table.Add({{"a rather long name"}, {"Mon 23 Nov"}}, {"a note of several words"});
    EXPECT_EQ("NAME                WHEN\na rather long name  Mon 23 Nov\n    a note of several words\n",
              table.Render(Screen(0, false, true)));
    EXPECT_EQ("NAME      WHEN\na rathe~  Mon 23 Nov\n    a note of\n    several words\n",
              table.Render(Screen(20, false, false)));
    EXPECT_EQ("a rather long\u2026\n  when  Mon 2\u2026\n  a note of\n  several\n  words\n",
              table.Render(Screen(14, false, true)));
}
