#include <cstring>

#include "datetime/LDateTime.h"
#include "datetime/LDateTimeFields.h"

namespace {

constexpr size_t kTimeOffset = 11;  // ten characters of the date and one between

const char* OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

bool IsRealDay(int year, int month, int day) {
    if (year < 1970 || year > 2038 || month < 1 || month > 12) return false;
    return day >= 1 && day <= LDateTime::GetNumberOfDaysInMonth(year, month);
}

/// The reading of a date in the locale's order. Even states wait for a field's first digit, odd ones are inside it;
/// from 6 on digits mean nothing.
class LocalDateReader {
  public:
    explicit LocalDateReader(int order) : order_(order) {}

    void Take(char character) {
        if (character == '-') {
            state_ = kDone;
        } else if (character != '\0' && std::strchr("./:\\", character) != nullptr) {
            if (state_ < kDone) state_ = (state_ & ~1U) + 2;
        } else if (IsDigit(character) && state_ < kDone) {
            TakeDigit(character - '0');
        }
    }

    [[nodiscard]] bool SawNothing() const { return state_ == 0; }
    [[nodiscard]] bool HasMonth() const { return hasMonth_; }

    void FillDate(std::tm& fields) const {
        LSetYearAndMonth(fields, year_, month_);
        fields.tm_mday = day_;
    }

  private:
    static constexpr unsigned kDone = 6;

    int& FieldOfState() {
        int* const fieldsByOrder[3][3] = {{&month_, &day_, &year_}, {&day_, &month_, &year_}, {&year_, &month_, &day_}};
        return *fieldsByOrder[order_][state_ / 2];
    }

    void TakeDigit(int digit) {
        int& field = FieldOfState();
        if (&field == &month_) hasMonth_ = true;
        field = (state_ & 1U) == 0 ? digit : LAppendDigit(field, digit);
        state_ |= 1U;
    }

    int order_;
    unsigned state_ = 0;
    int day_ = 1;
    int month_ = 0;
    int year_ = 0;
    bool hasMonth_ = false;
};

}  // namespace

bool LDateTime::SetDateTime(long& seconds, const char* date, const char* time) {
    date = OrEmpty(date);
    time = OrEmpty(time);
    if (*date == '\0') {
        seconds = 0;
        return true;
    }
    int year = 0;
    int month = 1;
    int day = 1;
    LScanThree(date, '-', year, month, day);
    int hour = 0;
    int minute = 0;
    int second = 0;
    LScanThree(time, ':', hour, minute, second);
    return SetDateTime(seconds, year, month, day, hour, minute, second);
}

bool LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(long& seconds, const char* text) {
    text = OrEmpty(text);
    const bool hasTime = strnlen(text, kTimeOffset) == kTimeOffset;
    return SetDateTime(seconds, text, hasTime ? text + kTimeOffset : "");
}

bool LDateTime::ValidateDateYYYYHMMHDD(const char* date) {
    date = OrEmpty(date);
    if (*date == '\0') return true;
    int year = 0;
    int month = 0;
    int day = 0;
    LScanThree(date, '-', year, month, day);
    return IsRealDay(year, month, day);
}

bool LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(const char* text) {
    text = OrEmpty(text);
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = -1;
    int minute = -1;
    int second = -1;
    // The number that follows the date may have white space before it, or none.
    if (LScanThree(text, '-', year, month, day)) LScanThree(text, ':', hour, minute, second);
    if (!IsRealDay(year, month, day)) return false;
    return hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
}

bool LDateTime::_SetTextDate(const char* text) {
    LocalDateReader reader(DateFormatOrder());
    for (text = OrEmpty(text); *text != '\0'; ++text) reader.Take(*text);
    if (reader.SawNothing()) {
        seconds = 0;
        return true;
    }
    if (!reader.HasMonth()) return false;
    std::tm fields = LBlankFields();
    reader.FillDate(fields);
    return LStoreLocalFields(seconds, fields);
}

bool LDateTime::_SetTextTime(const char* text) {
    std::tm fields;
    if (seconds == 0 || !LLocalFields(seconds, fields)) return false;

    int clock[3] = {0, 0, 0};
    size_t current = 0;
    for (text = OrEmpty(text); *text != '\0'; ++text) {
        if (*text == ':' && current < 3) ++current;
        if (IsDigit(*text) && current < 3) clock[current] = LAppendDigit(clock[current], *text - '0');
    }
    fields.tm_hour = clock[0];
    fields.tm_min = clock[1];
    fields.tm_sec = clock[2];
    return LStoreLocalFields(seconds, fields);
}
