#include "tools/schedulectl/When.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

constexpr const char* whenExamples = "Write it like 09:00, \"tomorrow 7:30\", \"2026-12-24 18:00\" or +15min.";

[[noreturn]] void Refuse(std::string_view text, std::string why, const char* remedy = whenExamples) {
    throw Failure{ExitCode::usage, "\"" + Printable(text) + "\" is no moment that I can read", std::move(why), remedy};
}

/// Reads decimal digits off the front of `text`; nothing when there are none or too many.
std::optional<int64_t> TakeNumber(std::string_view& text) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool digit = !text.empty() && text[0] >= '0' && text[0] <= '9';
    if (!digit || error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return number;
}

bool Take(std::string_view& text, char wanted) {
    if (text.empty() || text[0] != wanted) return false;
    text.remove_prefix(1);
    return true;
}

void SkipBlanks(std::string_view& text) {
    while (Take(text, ' ') || Take(text, '\t')) {
    }
}

std::string_view TakeWord(std::string_view& text) {
    const size_t end = std::min(text.find_first_of(" \t"), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    SkipBlanks(text);
    return word;
}

/// 0 Sunday to 6 Saturday for any beginning of a day's name of at least two letters.
std::optional<int> Weekday(std::string_view word) {
    const std::string lower = Lower(word);
    for (int day = 0; day < 7 && lower.size() >= 2; ++day)
        if (Lower(WeekdayNameLong(day)).compare(0, lower.size(), lower) == 0) return day;
    return std::nullopt;
}

struct Clock {
    int hour = 0, minute = 0, second = 0;
};

/// "9:05", "09:05:30"; what follows stays in `text`.
std::optional<Clock> TakeClock(std::string_view& text) {
    std::string_view rest = text;
    const auto hour = TakeNumber(rest);
    if (!hour || !Take(rest, ':')) return std::nullopt;
    const size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    const auto minute = TakeNumber(rest);
    if (!minute || digits != 2) return std::nullopt;
    int64_t second = 0;
    if (Take(rest, ':')) {
        const auto number = TakeNumber(rest);
        if (!number) return std::nullopt;
        second = *number;
    }
    if (*hour > 23 || *minute > 59 || second > 59) return std::nullopt;
    text = rest;
    return Clock{static_cast<int>(*hour), static_cast<int>(*minute), static_cast<int>(second)};
}

Civil At(Civil day, const Clock& clock) {
    day.hour = clock.hour;
    day.minute = clock.minute;
    day.second = clock.second;
    return day;
}

/// The first moment after `now` at which clocks show `clock`, on `weekday` where one is given. A day on which clocks
/// skip that time is passed over.
Moment NextClock(const Clock& clock, std::optional<int> weekday, Moment now) {
    const Civil today = CivilAt(now);
    for (int days = 0; days <= 15; ++days) {
        const Civil day = At(PlusDays(today, days), clock);
        if (weekday && day.weekday != *weekday) continue;
        const auto moment = MomentAt(day);
        if (moment && *moment > now) return *moment;
    }
    return now;  // not reached: two weeks hold every time of day on every weekday
}

Moment OnDay(const Civil& day, const Clock& clock, std::string_view text) {
    if (const auto moment = MomentAt(At(day, clock))) return *moment;
    const bool exists = MomentAt(At(day, {12, 0, 0})).has_value();
    if (!exists) Refuse(text, "There is no such day.");
    Refuse(text, "Clocks go forward on that day and skip this time.", "Name a time an hour earlier or later.");
}

Moment FromNow(std::string_view text, Moment now) {
    struct Unit {
        std::string_view names;  // each between two blanks
        int64_t seconds;
    };
    constexpr Unit units[] = {{" s sec secs second seconds ", 1},
                              {" m min mins minute minutes ", 60},
                              {" h hour hours ", 3600},
                              {" d day days ", daySeconds},
                              {" w week weeks ", weekSeconds}};
    std::string_view rest = text.substr(1);
    Moment moment = now;
    do {
        SkipBlanks(rest);
        const auto number = TakeNumber(rest);
        SkipBlanks(rest);
        const size_t letters = std::min(rest.find_first_of("0123456789 \t"), rest.size());
        const std::string name = " " + Lower(rest.substr(0, letters)) + " ";
        rest.remove_prefix(letters);
        const auto unit = std::find_if(std::begin(units), std::end(units),
                                       [&](const Unit& u) { return u.names.find(name) != std::string_view::npos; });
        if (!number || letters == 0 || unit == std::end(units))
            Refuse(text, "After + comes a number with its unit: s, min, h, d or w.");
        if (*number > 100000 * daySeconds / unit->seconds) Refuse(text, "That is centuries away.");
        moment += *number * unit->seconds;
        SkipBlanks(rest);
    } while (!rest.empty());
    return moment;
}

Moment SinceEpoch(std::string_view text) {
    std::string_view rest = text.substr(1);
    const auto seconds = TakeNumber(rest);
    if (!seconds || !rest.empty()) Refuse(text, "After @ come the seconds since 1970 UTC, in digits.");
    constexpr int64_t lastSecond = 253402300799;  // of the year 9999
    if (*seconds > lastSecond) Refuse(text, "That is after the year 9999.");
    return *seconds;
}

/// "Z", "+01:00" or "-0330" after a date and a time; nothing, and `text` as it was, where there is none.
std::optional<int64_t> TakeOffset(std::string_view& text) {
    if (Take(text, 'Z') || Take(text, 'z')) return 0;
    std::string_view rest = text;
    const int64_t sign = Take(rest, '+') ? 1 : Take(rest, '-') ? -1 : 0;
    const size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    std::optional<int64_t> hours = TakeNumber(rest);
    if (sign == 0 || !hours) return std::nullopt;
    int64_t minutes = 0;
    if (digits == 4) {
        minutes = *hours % 100;
        hours = *hours / 100;
    } else if (Take(rest, ':')) {
        minutes = TakeNumber(rest).value_or(60);
    }
    if (*hours > 14 || minutes > 59) return std::nullopt;
    text = rest;
    return sign * (*hours * 3600 + minutes * 60);
}

std::optional<Civil> TakeDate(std::string_view& text) {
    std::string_view rest = text;
    const auto year = TakeNumber(rest);
    if (!year || !Take(rest, '-')) return std::nullopt;
    const auto month = TakeNumber(rest);
    if (!month || !Take(rest, '-')) return std::nullopt;
    const auto day = TakeNumber(rest);
    if (!day || *year > 9999 || *month > 99 || *day > 99) return std::nullopt;
    text = rest;
    Civil civil;
    civil.year = static_cast<int>(*year);
    civil.month = static_cast<int>(*month);
    civil.day = static_cast<int>(*day);
    return civil;
}

When DateAndTime(const Civil& date, std::string_view rest, std::string_view text) {
    if (!rest.empty() && (rest[0] == 'T' || rest[0] == 't')) rest.remove_prefix(1);
    SkipBlanks(rest);
    if (rest.empty()) Refuse(text, "The day is there, the time of day is missing.");
    const auto clock = TakeClock(rest);
    if (!clock) Refuse(text, "Its time of day is none: hours go from 0 to 23, minutes from 00 to 59.");
    if (date.year < 1970) Refuse(text, "Moments are counted from 1970 on.");
    const auto offset = TakeOffset(rest);
    if (!rest.empty()) Refuse(text, "Something follows the time: \"" + Printable(rest) + "\".");
    if (!offset) return {OnDay(date, *clock, text), true};
    // The fields are those of another zone: count them as if here, then move by the difference of the offsets.
    const Civil noon = At(date, {12, 0, 0});
    const Moment here = OnDay(noon, {12, 0, 0}, text);
    const int64_t sinceNoon = (clock->hour - 12) * 3600 + clock->minute * 60 + clock->second;
    return {here + OffsetAt(here) + sinceNoon - *offset, true};
}

/// "today", "tomorrow", a weekday, or no day at all, then a time.
When DayAndTime(std::string_view text, Moment now) {
    std::string_view rest = text;
    const std::string word = Lower(TakeWord(rest));
    const bool today = word == "today", tomorrow = word == "tomorrow";
    const auto weekday = Weekday(word);
    const bool namesDay = today || tomorrow || weekday.has_value();
    if (!namesDay) rest = text;
    if (rest.empty()) Refuse(text, "The day is there, the time of day is missing.");
    std::optional<Clock> clock;
    const std::string time = Lower(rest);
    if (time == "noon" || time == "midnight") {
        clock = Clock{time == "noon" ? 12 : 0, 0, 0};
        rest = {};
    } else {
        clock = TakeClock(rest);
    }
    if (!clock || !rest.empty()) Refuse(text, "I look for a time of day such as 09:00, alone or after a day.");
    if (!today && !tomorrow) return {NextClock(*clock, weekday, now), namesDay};
    return {OnDay(PlusDays(CivilAt(now), tomorrow ? 1 : 0), *clock, text), true};
}

}  // namespace

When ParseWhen(std::string_view text, Moment now) {
    std::string_view rest = text;
    SkipBlanks(rest);
    while (!rest.empty() && (rest.back() == ' ' || rest.back() == '\t')) rest.remove_suffix(1);
    if (rest.empty()) Refuse(text, "It is empty.");
    if (rest[0] == '+') return {FromNow(rest, now), true};
    if (rest[0] == '@') return {SinceEpoch(rest), true};
    std::string_view afterDate = rest;
    if (const auto date = TakeDate(afterDate)) return DateAndTime(*date, afterDate, text);
    return DayAndTime(rest, now);
}

uint8_t ParseDays(std::string_view text) {
    const auto refuse = [&](std::string_view part) {
        throw Failure{ExitCode::usage, "\"" + Printable(text) + "\" names no weekdays that I can read",
                      part.empty() ? "A day is missing." : "\"" + Printable(part) + "\" is no day of the week.",
                      "Write it like mon-fri, sat,sun or weekdays."};
    };
    std::string list = Lower(text);
    for (size_t dash = 0; (dash = list.find("\u2013")) != std::string::npos;) list.replace(dash, 3, "-");
    list.erase(std::remove(list.begin(), list.end(), ' '), list.end());
    unsigned mask = 0;
    for (size_t start = 0; start <= list.size();) {
        const size_t comma = std::min(list.find(',', start), list.size());
        const std::string part = list.substr(start, comma - start);
        start = comma + 1;
        if (part == "weekdays")
            mask |= 0x3E;
        else if (part == "weekend" || part == "weekends")
            mask |= 0x41;
        else if (part == "all" || part == "everyday")
            mask |= 0x7F;
        else {
            const size_t dash = std::min(part.find('-'), part.size());
            const auto first = Weekday(part.substr(0, dash));
            const auto last = dash == part.size() ? first : Weekday(part.substr(dash + 1));
            if (!first || !last) refuse(part);
            for (int day = *first;; day = (day + 1) % 7) {
                mask |= 1U << day;
                if (day == *last) break;
            }
        }
    }
    return static_cast<uint8_t>(mask);
}

std::string FormatDays(unsigned mask) {
    mask &= 0x7F;
    if (mask == 0x7F) return "every day";
    if (mask == 0) return "no day";
    std::vector<std::string> parts;
    const auto chosen = [&](int fromMonday) { return fromMonday < 7 && (mask >> ((fromMonday + 1) % 7) & 1) != 0; };
    for (int day = 0; day < 7; ++day) {
        if (!chosen(day)) continue;
        int last = day;
        while (chosen(last + 1)) ++last;
        const std::string first = WeekdayName(day + 1);
        if (last - day >= 2) {
            parts.push_back(first + "-" + WeekdayName(last + 1));
            day = last;
        } else {
            parts.push_back(first);
        }
    }
    return Join(parts, ", ");
}

bool NamesOnlyADay(std::string_view word) {
    const std::string lower = Lower(word);
    if (lower == "today" || lower == "tomorrow" || Weekday(lower)) return true;
    return TakeDate(word).has_value() && word.empty();
}

bool LooksLikeTime(std::string_view word) {
    const std::string lower = Lower(word);
    if (lower == "noon" || lower == "midnight") return true;
    return TakeClock(word).has_value();
}

}  // namespace schedulectl
