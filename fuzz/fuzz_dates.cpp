// Date texts: any two texts, parted by a line's end, through every reader; what a valid text sets reads back the same.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "datetime/LDateTime.h"
#include "datetime/LDateTimeFields.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

std::string Full(long seconds) {
    char text[260];
    LDateTime(seconds).GetDateTime(text);
    Require(std::strlen(text) < 20);
    return text;
}

/// What was set is written in a form that sets it again, or has no date of four digits.
void CheckWritten(long seconds) {
    const std::string text = Full(seconds);
    if (text[0] == ' ' || text[0] == '0') return;  // and years below 1000 would fall under the rule for short years
    if (text.compare(0, 4, "1900") < 0) return;
    long again = 5;
    if (LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(again, text.c_str())) Require(Full(again) == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string first(data, data + size);
    const size_t end = first.find('\n');
    const std::string second = end == std::string::npos ? "" : first.substr(end + 1);
    if (end != std::string::npos) first.resize(end);

    long seconds = 5;
    if (LDateTime::SetDateTime(seconds, first.c_str(), second.c_str())) CheckWritten(seconds);
    seconds = 5;
    if (LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(seconds, first.c_str())) CheckWritten(seconds);
    if (LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(first.c_str())) {
        Require(LDateTime::ValidateDateYYYYHMMHDD(first.c_str()));
    }

    LDateTime value;
    if (value._SetTextDate(first.c_str())) CheckWritten(value.seconds);
    if (value._SetTextTime(second.c_str())) CheckWritten(value.seconds);
    (void)LDateOrderOfFormat(first);
    return 0;
}
