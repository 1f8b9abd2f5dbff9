// Moments as people read them. A moment is whole seconds since 1970 UTC; all calendar fields are those of the process's
// time zone (TZ), in which the helper too reads a schedule's time of day.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace schedulectl {

using Moment = int64_t;

constexpr Moment daySeconds = 86400;
constexpr Moment weekSeconds = 604800;

struct Civil {
    int year = 1970;
    int month = 1;  // 1 to 12
    int day = 1;    // 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday = 0;  // 0 Sunday to 6 Saturday; ignored by MomentAt
};

/// The local calendar fields of `moment`; all of 1970-01-01 when it has no calendar form.
Civil CivilAt(Moment moment);

/// The moment whose local calendar fields these are: nothing when there is none (the day does not exist, or clocks
/// skipped that time), the earlier one when clocks showed it twice. Days past the month's end are refused.
std::optional<Moment> MomentAt(const Civil& civil);

/// The local day `days` after that of `civil`, its time of day unchanged.
Civil PlusDays(const Civil& civil, int days);

/// Seconds that local time is ahead of UTC at `moment`.
int64_t OffsetAt(Moment moment);

/// Seconds since local midnight, by the clock on the wall.
int64_t SecondOfDay(Moment moment);

const char* WeekdayName(int weekday);      // "Mon"
const char* WeekdayNameLong(int weekday);  // "Monday"

std::string FormatDay(Moment moment, Moment now);       // "Mon 23 Nov", with the year when it is not the year of `now`
std::string FormatClock(int64_t secondOfDay);           // "17:30", or "17:30:05" when it has seconds
std::string FormatMoment(Moment moment, Moment now);    // "Mon 23 Nov 17:29:50"
std::string FormatAsked(Moment moment, Moment now);     // "Mon 23 Nov 17:30": FormatDay and FormatClock
std::string FormatIso(Moment moment);                   // "2026-11-23T17:29:50+01:00"
std::string FormatOffset(int64_t seconds);              // "+01:00"
std::string ZoneName(Moment moment);                    // "CET", or the offset where the zone has no letters
std::string FormatSpan(int64_t seconds);                // "45 s", "8 h 17 min", "3 d 4 h", "5 weeks", "2 years"
std::string FormatRelative(Moment moment, Moment now);  // "in 8 h 17 min", "3 min ago", "now"

}  // namespace schedulectl
