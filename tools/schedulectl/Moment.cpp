#include "tools/schedulectl/Moment.h"

#include <cstdio>
#include <ctime>

#include "datetime/LDateTime.h"

namespace schedulectl {
namespace {

constexpr const char* weekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr const char* shortWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// A day's number in an unbroken count, by the rules of the civil calendar; equal steps, so differences are days.
int64_t DayNumber(int64_t year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

std::tm LocalTime(Moment moment) {
    std::tm fields{};
    const auto time = static_cast<time_t>(moment);
    if (time != moment || localtime_r(&time, &fields) == nullptr) {
        fields = {};
        fields.tm_year = 70;
        fields.tm_mday = 1;
        fields.tm_wday = 4;
    }
    return fields;
}

template <typename... Arguments>
std::string Print(const char* format, Arguments... arguments) {
    char buffer[96];
    (void)snprintf(buffer, sizeof buffer, format, arguments...);
    return buffer;
}

bool SameFields(const Civil& a, const Civil& b) {
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour && a.minute == b.minute &&
           a.second == b.second;
}

}  // namespace

Civil CivilAt(Moment moment) {
    const std::tm fields = LocalTime(moment);
    return {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
            fields.tm_min,         fields.tm_sec,     fields.tm_wday};
}

std::optional<Moment> MomentAt(const Civil& civil) {
    const bool sane = civil.year >= 1970 && civil.year <= 9999 && civil.month >= 1 && civil.month <= 12 &&
                      civil.day >= 1 && civil.day <= LDateTime::GetNumberOfDaysInMonth(civil.year, civil.month) &&
                      civil.hour >= 0 && civil.hour < 24 && civil.minute >= 0 && civil.minute < 60 &&
                      civil.second >= 0 && civil.second < 60;
    if (!sane) return std::nullopt;
    std::optional<Moment> earliest;
    for (const int daylight : {1, 0}) {  // a time that clocks show twice has two moments
        std::tm fields{};
        fields.tm_year = civil.year - 1900;
        fields.tm_mon = civil.month - 1;
        fields.tm_mday = civil.day;
        fields.tm_hour = civil.hour;
        fields.tm_min = civil.minute;
        fields.tm_sec = civil.second;
        fields.tm_isdst = daylight;
        const Moment moment = mktime(&fields);
        if (SameFields(CivilAt(moment), civil) && (!earliest || moment < *earliest)) earliest = moment;
    }
    return earliest;
}

Civil PlusDays(const Civil& civil, int days) {
    // Noon UTC of a day has that same date in the calendar itself, whatever the local zone.
    const auto noon = static_cast<time_t>((DayNumber(civil.year, civil.month, civil.day) + days) * daySeconds + 43200);
    std::tm fields{};
    gmtime_r(&noon, &fields);
    Civil result = civil;
    result.year = fields.tm_year + 1900;
    result.month = fields.tm_mon + 1;
    result.day = fields.tm_mday;
    result.weekday = fields.tm_wday;
    return result;
}

int64_t OffsetAt(Moment moment) {
    const Civil civil = CivilAt(moment);
    const int64_t clock = civil.hour * 3600 + civil.minute * 60 + civil.second;
    return DayNumber(civil.year, civil.month, civil.day) * daySeconds + clock - moment;
}

int64_t SecondOfDay(Moment moment) {
    const Civil civil = CivilAt(moment);
    return civil.hour * 3600 + civil.minute * 60 + civil.second;
}

const char* WeekdayName(int weekday) {
    return shortWeekdays[weekday % 7];
}

const char* WeekdayNameLong(int weekday) {
    return weekdays[weekday % 7];
}

std::string FormatDay(Moment moment, Moment now) {
    const Civil civil = CivilAt(moment);
    const char* weekday = WeekdayName(civil.weekday);
    const char* month = months[civil.month - 1];
    if (civil.year == CivilAt(now).year) return Print("%s %2d %s", weekday, civil.day, month);
    return Print("%s %2d %s %d", weekday, civil.day, month, civil.year);
}

std::string FormatClock(int64_t secondOfDay) {
    const int hour = static_cast<int>(secondOfDay / 3600);
    const int minute = static_cast<int>(secondOfDay / 60 % 60);
    const int second = static_cast<int>(secondOfDay % 60);
    return second == 0 ? Print("%02d:%02d", hour, minute) : Print("%02d:%02d:%02d", hour, minute, second);
}

std::string FormatMoment(Moment moment, Moment now) {
    const Civil civil = CivilAt(moment);
    return FormatDay(moment, now) + Print(" %02d:%02d:%02d", civil.hour, civil.minute, civil.second);
}

std::string FormatAsked(Moment moment, Moment now) {
    return FormatDay(moment, now) + ' ' + FormatClock(SecondOfDay(moment));
}

std::string FormatOffset(int64_t seconds) {
    const int64_t size = seconds < 0 ? -seconds : seconds;
    return Print("%c%02d:%02d", seconds < 0 ? '-' : '+', static_cast<int>(size / 3600),
                 static_cast<int>(size / 60 % 60));
}

std::string FormatIso(Moment moment) {
    const Civil civil = CivilAt(moment);
    return Print("%04d-%02d-%02dT%02d:%02d:%02d", civil.year, civil.month, civil.day, civil.hour, civil.minute,
                 civil.second) +
           FormatOffset(OffsetAt(moment));
}

std::string ZoneName(Moment moment) {
    const std::tm fields = LocalTime(moment);
    char buffer[32] = "";
    (void)strftime(buffer, sizeof buffer, "%Z", &fields);
    const bool letters = (buffer[0] >= 'A' && buffer[0] <= 'Z') || (buffer[0] >= 'a' && buffer[0] <= 'z');
    return letters ? std::string(buffer) : "UTC" + FormatOffset(OffsetAt(moment));
}

std::string FormatSpan(int64_t seconds) {
    const auto two = [](int64_t large, const char* unit, int64_t small, const char* smaller) {
        const std::string head = std::to_string(large) + ' ' + unit;
        return small == 0 ? head : head + ' ' + std::to_string(small) + ' ' + smaller;
    };
    if (seconds < 60) return std::to_string(seconds) + " s";
    if (seconds < 3600)
        return seconds < 600 ? two(seconds / 60, "min", seconds % 60, "s") : std::to_string(seconds / 60) + " min";
    if (seconds < daySeconds) return two(seconds / 3600, "h", seconds / 60 % 60, "min");
    if (seconds < 2 * weekSeconds) return two(seconds / daySeconds, "d", seconds / 3600 % 24, "h");
    if (seconds < 730 * daySeconds) return std::to_string(seconds / weekSeconds) + " weeks";
    return std::to_string(seconds / (365 * daySeconds)) + " years";
}

std::string FormatRelative(Moment moment, Moment now) {
    if (moment == now) return "now";
    return moment > now ? "in " + FormatSpan(moment - now) : FormatSpan(now - moment) + " ago";
}

}  // namespace schedulectl
