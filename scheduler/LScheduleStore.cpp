#include "scheduler/LScheduleStore.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "base/LCharsets.h"

namespace {

constexpr std::string_view kBundleIdEntry = "APP_BUNDLEID";
constexpr std::string_view kAppPathEntry = "APP_PATH";
constexpr std::string_view kSkedNameEntry = "SKED_NAME";
constexpr std::string_view kStartTimeEntry = "START_TIME";
constexpr std::string_view kIsDailyEntry = "IS_DAILY";
constexpr std::string_view kIsWeeklyEntry = "IS_WEEKLY";
constexpr std::string_view kWeekdayMaskEntry = "WEEKDAY_MASK";

constexpr unsigned kAllWeekdays = 127;

int64_t NumberOr0(const NSDictionary& dictionary, std::string_view entry) {
    const std::optional<NSNumber> number = dictionary.numberForKey(entry);
    return number ? number->longLongValue() : 0;
}

long ToLong(int64_t value) {
    using Limits = std::numeric_limits<long>;
    return static_cast<long>(std::clamp<int64_t>(value, Limits::min(), Limits::max()));
}

/// By length first, which spares nearly every identity the making of its key.
bool HaveIndexKey(std::string_view bundleId, std::string_view appPath, std::string_view skedName) {
    return kScheduleKeyStart.size() + bundleId.size() + appPath.size() + skedName.size() == kScheduleIndexKey.size() &&
           LScheduleKey(bundleId, appPath, skedName) == kScheduleIndexKey;
}

}  // namespace

bool LIsScheduleText(const char* text) {
    // The decoder takes well-formed texts alone, and only those that fit together with their terminator.
    wchar_t characters[kScheduleTextSize];
    return text != nullptr && LCopyUTF32FromUTF8Native(characters, text, kScheduleTextSize) == 0;
}

bool LIsScheduleText(const std::string& text) {
    return text.find('\0') == std::string::npos && LIsScheduleText(text.c_str());
}

bool LIsScheduleIdentity(const char* bundleId, const char* appPath, const char* skedName) {
    return LIsScheduleText(bundleId) && LIsScheduleText(appPath) && LIsScheduleText(skedName) &&
           !HaveIndexKey(bundleId, appPath, skedName);
}

std::string LScheduleKey(std::string_view bundleId, std::string_view appPath, std::string_view skedName) {
    std::string key;
    key.reserve(kScheduleKeyStart.size() + bundleId.size() + appPath.size() + skedName.size());
    return key.append(kScheduleKeyStart).append(bundleId).append(appPath).append(skedName);
}

std::string LScheduleApplicationPrefix(std::string_view bundleId, std::string_view appPath) {
    return LScheduleKey(bundleId, appPath, "");
}

NSDictionary LScheduleRecordToDictionary(const LScheduleRecord& record) {
    NSDictionary dictionary;
    dictionary.setObject(record.bundleId, kBundleIdEntry);
    dictionary.setObject(record.appPath, kAppPathEntry);
    dictionary.setObject(record.skedName, kSkedNameEntry);
    dictionary.setObject(NSNumber::numberWithLong(record.start.seconds), kStartTimeEntry);
    dictionary.setObject(NSNumber::numberWithBool(record.daily), kIsDailyEntry);
    dictionary.setObject(NSNumber::numberWithBool(record.weekly), kIsWeeklyEntry);
    dictionary.setObject(NSNumber::numberWithUnsignedInt(record.weekDays.mask), kWeekdayMaskEntry);
    return dictionary;
}

std::optional<LScheduleRecord> LScheduleRecordFromDictionary(const NSDictionary& dictionary) {
    const NSString* bundleId = dictionary.stringForKey(kBundleIdEntry);
    const NSString* appPath = dictionary.stringForKey(kAppPathEntry);
    const NSString* skedName = dictionary.stringForKey(kSkedNameEntry);
    for (const NSString* text : {bundleId, appPath, skedName}) {
        if (text == nullptr || text->find('\0') != std::string::npos) return std::nullopt;
    }
    if (!LIsScheduleIdentity(bundleId->c_str(), appPath->c_str(), skedName->c_str())) return std::nullopt;

    LScheduleRecord record;
    record.bundleId = *bundleId;
    record.appPath = *appPath;
    record.skedName = *skedName;
    record.start = LDateTime(ToLong(NumberOr0(dictionary, kStartTimeEntry)));
    record.daily = NumberOr0(dictionary, kIsDailyEntry) != 0;
    record.weekly = NumberOr0(dictionary, kIsWeeklyEntry) != 0;
    const auto mask = static_cast<unsigned>(NumberOr0(dictionary, kWeekdayMaskEntry));
    record.weekDays = LWeekDay(static_cast<unsigned char>(mask & kAllWeekdays));
    return record;
}

std::optional<std::vector<std::string>> LReadScheduleIndex(const NSUserDefaults& defaults) {
    return defaults.arrayForKey(kScheduleIndexKey);
}

std::optional<LScheduleRecord> LReadScheduleRecord(const NSUserDefaults& defaults, std::string_view key) {
    if (key == kScheduleIndexKey) return std::nullopt;
    const std::optional<NSDictionary> dictionary = defaults.dictionaryForKey(key);
    return dictionary ? LScheduleRecordFromDictionary(*dictionary) : std::nullopt;
}

std::vector<LStoredSchedule> LReadStoredSchedules(const NSUserDefaults& defaults) {
    std::vector<LStoredSchedule> schedules;
    std::optional<std::vector<std::string>> index = LReadScheduleIndex(defaults);
    if (!index) return schedules;
    schedules.reserve(index->size());
    for (std::string& key : *index) {
        std::optional<LScheduleRecord> record = LReadScheduleRecord(defaults, key);
        schedules.push_back({std::move(key), std::move(record)});
    }
    return schedules;
}
