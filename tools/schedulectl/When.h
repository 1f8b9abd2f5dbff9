// What people write for a moment (WHEN) and for weekdays (DAYS).
//
//   WHEN   09:00             the next time that clocks show it      23:15:30   noon   midnight
//          tomorrow 7:30     today, tomorrow, or a weekday (the next one that is still to come)
//          2026-12-24 18:00  a date; "T" between the two and an offset ("Z", "+01:00") after them are read as well
//          +15min            from now: s, min, h, d, w, also joined as in +1h30min
//          @1798131600       seconds since 1970 UTC
//   DAYS   mon-fri           ranges (they may run over the week's end) and lists: sat,sun   fri-mon   weekdays weekend
//
// Case does not count. Bad input is a Failure with the exit code for usage, which names what was not understood.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/schedulectl/Moment.h"

namespace schedulectl {

struct When {
    Moment moment = 0;
    bool namesDay = false;  // a day was given, not only a time of day
};

/// The moment that `text` names at `now`. It may lie in the past: whoever asks decides what that means.
When ParseWhen(std::string_view text, Moment now);

/// A weekday set, bit 0 Sunday to bit 6 Saturday; never empty.
uint8_t ParseDays(std::string_view text);

/// "Mon-Fri", "Sat, Sun", "every day", "no day"; weeks begin on Monday. Bits above 6 are not looked at.
std::string FormatDays(unsigned mask);

/// True when `word` could begin a WHEN of two words ("tomorrow", "2026-12-24") whose second word is a time.
bool NamesOnlyADay(std::string_view word);
/// True for "7:30" and its like.
bool LooksLikeTime(std::string_view word);

}  // namespace schedulectl
