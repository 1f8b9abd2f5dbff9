#include "datetime/LDateTime.h"

#include <algorithm>
#include <limits>

#include "datetime/LDateTimeFields.h"

bool LDateTime::SetDateTime(long& seconds, int year, int month, int day, int hour, int minute, int second) {
    std::tm fields = LBlankFields();
    LSetYearAndMonth(fields, year, month);
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    return LStoreLocalFields(seconds, fields);
}

bool LDateTime::IsLeapYear(int year) {
    if (year % 400 == 0) return true;
    if (year % 100 == 0) return false;
    return year % 4 == 0;
}

int LDateTime::GetNumberOfDaysInMonth(int year, int month) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    if (month == 2 && IsLeapYear(year)) return 29;
    return kDays[month - 1];
}

LDayTime LDateTime::GetDayTime() const {
    std::tm fields;
    if (seconds == 0 || !LLocalFields(seconds, fields)) return LDayTime();
    return LDayTime(fields.tm_hour * 3600L + fields.tm_min * 60L + fields.tm_sec);
}

bool LDateTime::SetDayTime(LDayTime time) {
    if (seconds == 0) seconds = LCurrentSeconds();
    const long hours = time.seconds / 3600;
    std::tm fields;
    if (hours < std::numeric_limits<int>::min() || hours > std::numeric_limits<int>::max()) return false;
    if (!LLocalFields(seconds, fields)) return false;

    fields.tm_isdst = -1;
    fields.tm_hour = static_cast<int>(hours);
    fields.tm_min = static_cast<int>((time.seconds / 60) % 60);
    fields.tm_sec = static_cast<int>(time.seconds % 60);
    return LStoreLocalFields(seconds, fields);
}

LWeekDay LDateTime::GetWeekDay() const {
    std::tm fields;
    if (!LLocalFields(seconds, fields)) return LWeekDay();
    return LWeekDay(static_cast<unsigned char>(1U << fields.tm_wday));
}

bool LDateTime::TestScheduleDetails(LDateTime moment, LDayTime time, LWeekDay day, LDateTime rangeStart,
                                    LDateTime rangeEnd, LDayTime windowStart, LDayTime windowEnd,
                                    LWeekDay allowedDays) {
    if (rangeStart.seconds > moment.seconds) return false;
    if (rangeEnd.seconds > 0 && rangeEnd.seconds <= moment.seconds) return false;

    const bool fromStart = time.seconds >= windowStart.seconds;
    const bool beforeEnd = time.seconds < windowEnd.seconds;
    const bool throughMidnight = windowStart.seconds > windowEnd.seconds;
    if (throughMidnight ? !(fromStart || beforeEnd) : !(fromStart && beforeEnd)) return false;

    return (allowedDays.mask & day.mask) != 0;
}

LDateTime LDateTime::AdjustByMonths(int months) const {
    std::tm fields;
    LDateTime moved;
    if (!LLocalFields(seconds, fields)) return moved;

    const long long total = static_cast<long long>(fields.tm_mon) + months;
    const long long monthIndex = (total % 12 + 12) % 12;
    const long long year = fields.tm_year + 1900LL + (total - monthIndex) / 12;
    if (year < std::numeric_limits<int>::min() || year > std::numeric_limits<int>::max()) return moved;

    const int targetYear = static_cast<int>(year);
    const int targetMonth = static_cast<int>(monthIndex) + 1;
    const int day = std::min(fields.tm_mday, GetNumberOfDaysInMonth(targetYear, targetMonth));
    SetDateTime(moved.seconds, targetYear, targetMonth, day, fields.tm_hour, fields.tm_min, fields.tm_sec);
    return moved;
}

LDateTime LDateTime::GetBuildDate() {
    return LBuildDateFromText(__DATE__);
}
