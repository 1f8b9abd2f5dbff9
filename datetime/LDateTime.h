// Moments, times of day and weekday sets: values, calendar rules, and their text forms.
//
// Everything that turns a moment into calendar fields or back goes through the C library's local time, so it follows
// the process's time zone (TZ) and its daylight rules. A broken-down time goes to `mktime` with its daylight flag
// unknown, unless a member says otherwise.
//
// Year rule. Wherever a year number is turned into a date (never where a moment is taken apart), it means
//     69 or less    2000 + y      15 is 2015
//     70 to 1899    1900 + y      70 is 1970, 115 is 2015
//     1900 or more  y
//
// Failures. `mktime` answers -1 for what it cannot convert, but also for the real moment one second before 1970; both
// count as "not converted". A moment that does not fit `long` counts as not converted too. What a member fills is then
// left as it was, and the member answers false; members that return a fresh value return the unset value 0.
//
// Texts are bytes that end with 0. A null text is read as the empty one. Numbers in texts are read as `sscanf` reads
// "%d" (white space, a sign, decimal digits); a number beyond `int` counts as the nearest `int`.
//
// Output buffers belong to the caller and must not be null. Sizes below include the terminator: a date takes 11 bytes,
// a time 9, a joined date and time 260 at most (20 in fact). A moment without a local calendar form is written like an
// unset one; a year outside 0 to 9999 has no four-digit form, so the year-month-day date of such a moment is empty.
//
// Plain values: copy them freely. Members are safe on any thread as long as nobody changes TZ or the locale meanwhile.
#pragma once

/// Seconds since local midnight, 0 to 86399 where this library produces it.
struct LDayTime {
    long seconds = 0;

    constexpr LDayTime() = default;
    constexpr explicit LDayTime(long value) : seconds(value) {}
    friend bool operator==(const LDayTime&, const LDayTime&) = default;
};

/// A set of weekdays: bit 0 Sunday, bit 1 Monday, ... bit 6 Saturday. Bit 7 has no meaning.
struct LWeekDay {
    unsigned char mask = 0;

    constexpr LWeekDay() = default;
    constexpr explicit LWeekDay(unsigned char value) : mask(value) {}
    friend bool operator==(const LWeekDay&, const LWeekDay&) = default;
};

/// A moment: whole seconds since 1 January 1970 00:00:00 UTC; 0 means unset.
struct LDateTime {
    long seconds = 0;

    constexpr LDateTime() = default;
    constexpr explicit LDateTime(long value) : seconds(value) {}
    friend bool operator==(const LDateTime&, const LDateTime&) = default;

    // ---- Calendar

    /// Sets `seconds` to that local date and time, month 1 to 12. Fields out of their ranges carry over (month 13 is
    /// January of the next year, day 0 the last day of the month before, hour 24 the next midnight). False when it
    /// cannot be converted; `seconds` is then as it was.
    static bool SetDateTime(long& seconds, int year, int month, int day, int hour, int minute, int second);

    /// `year` is taken as it is, without the year rule.
    static bool IsLeapYear(int year);
    /// 28 to 31; 0 when `month` is not 1 to 12. `year` is taken as it is.
    static int GetNumberOfDaysInMonth(int year, int month);

    /// The local time of day; 0 for an unset value.
    [[nodiscard]] LDayTime GetDayTime() const;
    /// Keeps the local date and sets the time of day; 86400 or more reaches into later days. An unset value becomes the
    /// current moment first. False, and no time of day set, when it cannot be converted.
    bool SetDayTime(LDayTime time);
    /// The local weekday as a one-bit set (an unset value is converted like any other); empty without a calendar form.
    [[nodiscard]] LWeekDay GetWeekDay() const;

    /// Whether a moment falls into a schedule: not before `rangeStart`, before `rangeEnd` (0 or less: no end), within
    /// the daily window, and on an allowed weekday. The window includes its start and excludes its end; it runs through
    /// midnight when it ends before it starts, and admits nothing when both are equal. `time` and `day` are taken as
    /// given: pass GetDayTime and GetWeekDay of the same moment.
    static bool TestScheduleDetails(LDateTime moment, LDayTime time, LWeekDay day, LDateTime rangeStart,
                                    LDateTime rangeEnd, LDayTime windowStart, LDayTime windowEnd, LWeekDay allowedDays);

    /// The same local day and time of day `months` later (negative: earlier), the day cut to the length of the month
    /// that is reached. The year that is reached goes through the year rule, so a year before 1900 is out of reach:
    /// 1899 means 3799. The unset value 0 when it cannot be converted.
    [[nodiscard]] LDateTime AdjustByMonths(int months) const;

    /// The day on which this library was compiled, at local midnight; the unset value 0 when it cannot be converted.
    static LDateTime GetBuildDate();

    // ---- Writing. An unset value gives empty texts; the joined forms then hold the separating space alone.

    /// "2015-05-01" and "09:03:07".
    static void GetDateTime(long seconds, char* date, char* time);
    /// "2015-05-01" and "09:03".
    static void GetDateYYYYHMMHDDTimeHHCMM(long seconds, char* date, char* time);
    /// "2015-05-01".
    void GetDateInLocalFormat(char* buffer) const;
    /// "09:03:07".
    void GetTimeInLocalFormat(char* buffer) const;
    /// "2015-05-01 09:03:07".
    void GetDateTimeInLocalFormat(char* buffer) const;
    void GetDateTime(char* buffer) const;
    /// "2015-05-01 09:03".
    void GetDateYYYYHMMHDDTimeHHCMM(char* buffer) const;
    /// The short date in the locale's order, two digits each: "05/01/15", "01/05/15" or "15/05/01".
    void GetDateLocalFormat(char* buffer) const;
    /// "09:03:07".
    void _GetTextTime(char* buffer) const;
    /// "09:03".
    static void GetTimeHHCMM(long seconds, char* buffer);
    /// "09-03-07".
    static void GetTimeHHHMMHSS(long seconds, char* buffer);

    // ---- Reading

    /// Reads "year-month-day" and "hour:minute:second". Reading stops at the first mismatch; a month or day that is not
    /// reached counts as 1, all else as 0. An empty date text sets 0, the unset value. False when it cannot be
    /// converted.
    static bool SetDateTime(long& seconds, const char* date, const char* time);
    /// As above with both in one text, the time from the twelfth character on. A text of up to 11 characters has no
    /// time.
    static bool SetDateYYYYHMMHDDTimeHHCMMCSS(long& seconds, const char* text);

    /// Whether `date` is a real day of the years 1970 to 2038. The empty text, which sets the unset value, is valid.
    /// What follows the day is not looked at.
    static bool ValidateDateYYYYHMMHDD(const char* date);
    /// The same for a date that is followed by a full time of day. The empty text is not valid.
    static bool ValidateDateTimeYYYYHMMHDDHHCMMCSS(const char* text);

    /// Reads a date typed in the locale's order, at local midnight. The fields are parted by ".", "/", ":" or a
    /// backslash; "-" ends the reading; any other character is passed over. A day that is not typed counts as 1, a year
    /// as 2000. A text with neither digit nor separator sets 0. A text that types no digit of a month is refused: the
    /// value stays as it was and the result is false, for a date that nobody typed is worse than none.
    bool _SetTextDate(const char* text);
    /// Reads "hour:minute:second", fields may be missing from the end, and sets that time of the value's local day,
    /// with the daylight flag that the value has now. Does nothing to an unset value. False when nothing was set.
    bool _SetTextTime(const char* text);

    /// The order of the locale's dates: 0 month-day-year, 1 day-month-year, 2 year-month-day. Found at the first use in
    /// the process and kept from then on.
    static int DateFormatOrder();
};

/// The same, found afresh from the locale in force (`setlocale` is the program's business).
int LGetLocaleDateFormatOrder();
