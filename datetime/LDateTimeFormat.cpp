#include <cstdio>

#include "datetime/LDateTime.h"
#include "datetime/LDateTimeFields.h"

namespace {

constexpr size_t kJoinedSize = 260;
constexpr size_t kDateSize = 11;
constexpr size_t kTimeSize = 9;

char* WriteTwoDigits(char* out, int value) {
    *out++ = static_cast<char>('0' + value / 10);
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

void WriteThree(char* out, char separator, int first, int second, int third) {
    out = WriteTwoDigits(out, first);
    *out++ = separator;
    out = WriteTwoDigits(out, second);
    *out++ = separator;
    *WriteTwoDigits(out, third) = '\0';
}

void WriteHourMinute(char* out, const std::tm& fields) {
    out = WriteTwoDigits(out, fields.tm_hour);
    *out++ = ':';
    *WriteTwoDigits(out, fields.tm_min) = '\0';
}

void WriteTime(char* out, char separator, const std::tm& fields) {
    WriteThree(out, separator, fields.tm_hour, fields.tm_min, fields.tm_sec);
}

/// Nothing when the year does not fit into four digits.
void WriteDate(char* out, const std::tm& fields) {
    *out = '\0';
    if (fields.tm_year < -1900 || fields.tm_year > 9999 - 1900) return;
    const int year = fields.tm_year + 1900;
    out = WriteTwoDigits(out, year / 100);
    WriteThree(out, '-', year % 100, fields.tm_mon + 1, fields.tm_mday);
}

/// False for what has no text: the unset value, and a moment without a calendar form.
bool FieldsForText(long seconds, std::tm& fields) {
    return seconds != 0 && LLocalFields(seconds, fields);
}

void Join(char* buffer, const char* date, const char* time) {
    std::snprintf(buffer, kJoinedSize, "%s %s", date, time);
}

}  // namespace

void LDateTime::GetDateTime(long seconds, char* date, char* time) {
    *date = *time = '\0';
    std::tm fields;
    if (!FieldsForText(seconds, fields)) return;
    WriteDate(date, fields);
    WriteTime(time, ':', fields);
}

void LDateTime::GetDateYYYYHMMHDDTimeHHCMM(long seconds, char* date, char* time) {
    *date = *time = '\0';
    std::tm fields;
    if (!FieldsForText(seconds, fields)) return;
    WriteDate(date, fields);
    WriteHourMinute(time, fields);
}

void LDateTime::GetDateInLocalFormat(char* buffer) const {
    char time[kTimeSize];
    GetDateTime(seconds, buffer, time);
}

void LDateTime::GetTimeInLocalFormat(char* buffer) const {
    char date[kDateSize];
    GetDateTime(seconds, date, buffer);
}

void LDateTime::GetDateTimeInLocalFormat(char* buffer) const {
    GetDateTime(buffer);
}

void LDateTime::GetDateTime(char* buffer) const {
    char date[kDateSize];
    char time[kTimeSize];
    GetDateTime(seconds, date, time);
    Join(buffer, date, time);
}

void LDateTime::GetDateYYYYHMMHDDTimeHHCMM(char* buffer) const {
    char date[kDateSize];
    char time[kTimeSize];
    GetDateYYYYHMMHDDTimeHHCMM(seconds, date, time);
    Join(buffer, date, time);
}

void LDateTime::GetDateLocalFormat(char* buffer) const {
    *buffer = '\0';
    std::tm fields;
    if (!FieldsForText(seconds, fields)) return;

    const int year = (fields.tm_year % 100 + 100) % 100;  // 1900 is a multiple of 100
    const int month = fields.tm_mon + 1;
    const int day = fields.tm_mday;
    switch (DateFormatOrder()) {
        case 2:
            return WriteThree(buffer, '/', year, month, day);
        case 1:
            return WriteThree(buffer, '/', day, month, year);
        default:
            return WriteThree(buffer, '/', month, day, year);
    }
}

void LDateTime::_GetTextTime(char* buffer) const {
    *buffer = '\0';
    std::tm fields;
    if (FieldsForText(seconds, fields)) WriteTime(buffer, ':', fields);
}

void LDateTime::GetTimeHHCMM(long seconds, char* buffer) {
    *buffer = '\0';
    std::tm fields;
    if (FieldsForText(seconds, fields)) WriteHourMinute(buffer, fields);
}

void LDateTime::GetTimeHHHMMHSS(long seconds, char* buffer) {
    *buffer = '\0';
    std::tm fields;
    if (FieldsForText(seconds, fields)) WriteTime(buffer, '-', fields);
}
