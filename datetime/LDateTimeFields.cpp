#include "datetime/LDateTimeFields.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

long LCurrentSeconds() {
    const std::time_t now = std::time(nullptr);
    using Limits = std::numeric_limits<long>;
    return static_cast<long>(std::clamp<int64_t>(now, Limits::min(), Limits::max()));
}

bool LLocalFields(long seconds, std::tm& fields) {
    const std::time_t moment = seconds;
    return localtime_r(&moment, &fields) != nullptr;
}

std::tm LBlankFields() {
    std::tm fields{};
    fields.tm_mday = 1;
    fields.tm_isdst = -1;
    return fields;
}

bool LStoreLocalFields(long& seconds, std::tm& fields) {
    const int64_t moment = std::mktime(&fields);
    if (moment == -1) return false;
    if (moment < std::numeric_limits<long>::min() || moment > std::numeric_limits<long>::max()) return false;
    seconds = static_cast<long>(moment);
    return true;
}

void LSetYearAndMonth(std::tm& fields, int year, int month) {
    if (year <= 69) {
        fields.tm_year = year + 100;
    } else {
        fields.tm_year = year < 1900 ? year : year - 1900;
    }
    if (month == std::numeric_limits<int>::min()) {
        // One less would not fit: the same month, told from the year before.
        --fields.tm_year;
        month += 12;
    }
    fields.tm_mon = month - 1;
}

LDateTime LBuildDateFromText(const char* text) {
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    int month = 0;
    for (int i = 0; i < 12; ++i) {
        if (std::strncmp(text, kMonths[i], 3) == 0) month = i + 1;
    }
    const char* rest = text + strnlen(text, 3);
    int day = 0;
    int year = 0;
    if (LScanInt(rest, day)) LScanInt(rest, year);

    LDateTime date;
    LDateTime::SetDateTime(date.seconds, year, month, day, 0, 0, 0);
    return date;
}

int LAppendDigit(int value, int digit) {
    constexpr int kMost = std::numeric_limits<int>::max();
    if (value > (kMost - digit) / 10) return kMost;
    return value * 10 + digit;
}

bool LScanInt(const char*& text, int& value) {
    const char* at = text;
    while (*at == ' ' || (*at >= '\t' && *at <= '\r')) ++at;
    const bool negative = *at == '-';
    if (*at == '-' || *at == '+') ++at;
    if (*at < '0' || *at > '9') return false;

    // Summed below zero, where there is room for one more.
    constexpr int kLeast = std::numeric_limits<int>::min();
    int sum = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        const int digit = *at - '0';
        sum = sum < (kLeast + digit) / 10 ? kLeast : sum * 10 - digit;
    }
    if (!negative) sum = sum == kLeast ? std::numeric_limits<int>::max() : -sum;
    text = at;
    value = sum;
    return true;
}

bool LScanThree(const char*& text, char separator, int& first, int& second, int& third) {
    if (!LScanInt(text, first) || *text != separator) return false;
    ++text;
    if (!LScanInt(text, second) || *text != separator) return false;
    ++text;
    return LScanInt(text, third);
}
