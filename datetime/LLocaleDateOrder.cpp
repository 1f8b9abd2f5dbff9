#include <langinfo.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <initializer_list>

#include "datetime/LDateTime.h"
#include "datetime/LDateTimeFields.h"

namespace {

constexpr size_t kLongestFormat = 259;

/// Where the first of `tokens` stands that stands anywhere: the earlier token wins, not the earlier place. -1, before
/// every place, when none does.
int PlaceOf(std::string_view format, std::initializer_list<std::string_view> tokens) {
    for (const std::string_view token : tokens) {
        const size_t place = format.find(token);
        if (place != std::string_view::npos) return static_cast<int>(place);
    }
    return -1;
}

/// The first "%" followed by that letter in either case.
int PlaceOfEitherCase(std::string_view format, std::string_view lower, std::string_view upper) {
    const size_t place = std::min(format.find(lower), format.find(upper));
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

}  // namespace

int LDateOrderOfFormat(std::string_view format) {
    if (format.find("%D") != std::string_view::npos) return 0;
    int month = PlaceOf(format, {"%m"});
    if (month < 0) month = PlaceOfEitherCase(format, "%b", "%B");
    if (month < 0) month = PlaceOf(format, {"%h"});
    const int day = PlaceOf(format, {"%d", "%e"});
    const int year = PlaceOfEitherCase(format, "%y", "%Y");

    if (year < month && year < day) return 2;
    return month < day ? 0 : 1;
}

int LGetLocaleDateFormatOrder() {
    const char* format = nl_langinfo(D_FMT);
    return LDateOrderOfFormat({format, strnlen(format, kLongestFormat)});
}

int LDateTime::DateFormatOrder() {
    // -1 until it has first been needed. Threads that come first together find the same order and store it twice.
    static std::atomic<int> order = -1;
    int known = order.load(std::memory_order_relaxed);
    if (known < 0) {
        known = LGetLocaleDateFormatOrder();
        order.store(known, std::memory_order_relaxed);
    }
    return known;
}
