// The time zone of one test, and five zones worked out from their published rules, apart from the C library's.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <ctime>

class LocalZone {
  public:
    explicit LocalZone(const char* name) { Set(name); }
    ~LocalZone() { Set("UTC"); }
    LocalZone(const LocalZone&) = delete;
    LocalZone& operator=(const LocalZone&) = delete;

  private:
    static void Set(const char* name) {
        setenv("TZ", name, 1);
        tzset();
    }
};

/// Days since 1 January 1970 of a day of the Gregorian calendar.
constexpr int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

constexpr int64_t WeekDayOf(int64_t days) {
    return ((days + 4) % 7 + 7) % 7;
}  // 1 January 1970 was a Thursday

/// The n-th Sunday of a month; n = 0: the last one of a month with 31 days.
constexpr int64_t Sunday(int64_t year, int month, int n) {
    if (n == 0) return DaysFromCivil(year, month, 31) - WeekDayOf(DaysFromCivil(year, month, 31));
    const int64_t first = DaysFromCivil(year, month, 1);
    return first + (7 - WeekDayOf(first)) % 7 + 7 * (n - 1);
}

/// Daylight time runs between two changes of the year, told in days and seconds UTC; the rules hold from 2009 on.
struct ZoneRule {
    const char* name;
    int64_t standard;
    int64_t saving;
    int fromMonth, fromSunday;
    int64_t fromSecond;
    int toMonth, toSunday;
    int64_t toSecond;

    [[nodiscard]] int64_t OffsetAt(int64_t moment) const {
        if (saving == 0) return standard;
        const int64_t year = 1970 + (moment + standard) / 31556952;
        const int64_t from = Sunday(year, fromMonth, fromSunday) * 86400 + fromSecond;
        const int64_t to = Sunday(year, toMonth, toSunday) * 86400 + toSecond;
        const bool isSaving = from < to ? moment >= from && moment < to : moment >= from || moment < to;
        return standard + (isSaving ? saving : 0);
    }
};

constexpr ZoneRule kZones[] = {
    {"UTC", 0, 0, 0, 0, 0, 0, 0, 0},
    {"Europe/Berlin", 3600, 3600, 3, 0, 3600, 10, 0, 3600},
    {"America/New_York", -18000, 3600, 3, 2, 7 * 3600, 11, 1, 6 * 3600},
    {"Australia/Lord_Howe", 37800, 1800, 10, 1, 2 * 3600 - 37800, 4, 1, 2 * 3600 - 39600},
    {"Asia/Kathmandu", 20700, 0, 0, 0, 0, 0, 0, 0},
};
