// How schedules stand in the user's defaults: keys, the record, the index, and the step from one to the other.
//
// Each schedule is one record, a dictionary of seven entries, under its schedule key; one array, the index, lists the
// keys of all records in the order in which they were added. The functions here only convert and read; the scheduler is
// the one that writes.
//
// A schedule's identity is three texts: the application's bundle identifier, its bundle path, and the schedule's name.
// Its key is the plain concatenation of "LGCDSCHEDULER_" and the three, so two identities can share a key, and one
// (identifier "SKED", path "_ALL", no name; or any other split of the same letters) would have the index's own key.
// That one is no schedule: it is neither stored nor loaded, so the index cannot be overwritten.
//
// A usable text is UTF-8, at most 259 bytes, without a 0 inside, for it has to fit the 260-byte buffers of a timer and
// compare equal there. Texts are refused, never cut: a cut text would be another identity in memory than in the store.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Foundation/Foundation.h>

#include "datetime/LDateTime.h"

constexpr std::string_view kScheduleKeyStart = "LGCDSCHEDULER_";
constexpr std::string_view kScheduleIndexKey = "LGCDSCHEDULER_SKED_ALL";

/// A text buffer of the scheduler in bytes, the terminator included.
constexpr size_t kScheduleTextSize = 260;

/// One schedule as it is stored. `start` is the moment handed to the scheduler; both flags stand as they were given.
struct LScheduleRecord {
    std::string bundleId;
    std::string appPath;
    std::string skedName;
    LDateTime start;
    bool daily = false;
    bool weekly = false;
    LWeekDay weekDays;

    friend bool operator==(const LScheduleRecord&, const LScheduleRecord&) = default;
};

/// Whether `text` can be part of an identity; false for null.
bool LIsScheduleText(const char* text);
bool LIsScheduleText(const std::string& text);

/// Whether all three texts are usable and together make a key of their own.
bool LIsScheduleIdentity(const char* bundleId, const char* appPath, const char* skedName);

std::string LScheduleKey(std::string_view bundleId, std::string_view appPath, std::string_view skedName);

/// What the keys of one application's schedules begin with (and those of a path that only begins with `appPath`).
std::string LScheduleApplicationPrefix(std::string_view bundleId, std::string_view appPath);

/// The record in its stored form: three texts, "START_TIME" as a whole number, the flags as booleans, the mask as it is
/// (0 to 255).
NSDictionary LScheduleRecordToDictionary(const LScheduleRecord& record);

/// Nothing when one of the three texts is missing, no text or not usable, or when they name the index. Any other entry
/// that is missing or no number reads as 0 or false; a moment beyond `long` as the nearest `long`; only the seven
/// weekdays of the mask count.
std::optional<LScheduleRecord> LScheduleRecordFromDictionary(const NSDictionary& dictionary);

/// The index as stored, its members in order; nothing when there is none.
std::optional<std::vector<std::string>> LReadScheduleIndex(const NSUserDefaults& defaults);

/// The record under `key`; nothing when there is none, or none that can be loaded. The index's own key has none.
std::optional<LScheduleRecord> LReadScheduleRecord(const NSUserDefaults& defaults, std::string_view key);

/// A member of the index and what stands behind it.
struct LStoredSchedule {
    std::string key;
    std::optional<LScheduleRecord> record;
};

/// The whole store in the order of the index, for those who show it.
std::vector<LStoredSchedule> LReadStoredSchedules(const NSUserDefaults& defaults);
