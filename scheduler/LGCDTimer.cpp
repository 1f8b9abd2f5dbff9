#include "scheduler/LGCDTimer.h"

#include <cstdint>
#include <ctime>
#include <new>

#include "base/LCharsets.h"
#include "scheduler/LGCDArming.h"
#include "scheduler/LGCDScheduler.h"

namespace {

unsigned char Folded(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte - 'A' + 'a') : byte;
}

/// As strcasecmp in the C locale, whatever the process's locale is: in an 8-bit locale that one folds accented letters
/// too, which would tear multi-byte characters apart.
bool AreEqualFolded(const char* left, const char* right) {
    while (*left != '\0' && (*left == *right || Folded(*left) == Folded(*right))) {
        ++left;
        ++right;
    }
    return *left == *right;
}

/// Goes on from `hash` with the text and its end (FNV-1a).
uint64_t HashFolded(uint64_t hash, const char* text) {
    constexpr uint64_t kPrime = 0x100000001B3;
    for (; *text != '\0'; ++text) hash = (hash ^ Folded(*text)) * kPrime;
    return hash * kPrime;
}

size_t Mixed(uint64_t hash) {
    return static_cast<size_t>(hash ^ (hash >> 32));
}

}  // namespace

LGCDSource::~LGCDSource() {
    dispatch_source_cancel(source);
    dispatch_release(source);
}

LGCDTimerHashes::LGCDTimerHashes(const LGCDTimerTexts& texts) {
    constexpr uint64_t kBasis = 0xCBF29CE484222325;
    const uint64_t hash = HashFolded(HashFolded(kBasis, texts.bundleId), texts.appPath);
    application = Mixed(hash);
    all = texts.skedName == nullptr ? application : Mixed(HashFolded(hash, texts.skedName));
}

bool LGCDTimer::Matches(const LGCDTimerTexts& texts) const {
    return (texts.skedName == nullptr || AreEqualFolded(skedName, texts.skedName)) &&
           AreEqualFolded(bundleId, texts.bundleId) && AreEqualFolded(appPath, texts.appPath);
}

LGCDTimer::LGCDTimer(const char* newBundleId, const char* newAppPath, const char* newSkedName, const LDateTime& start,
                     bool daily, bool weekly, const LWeekDay& weekDays, LGCDScheduler* scheduler) {
    utf8strlcpy(bundleId, newBundleId, sizeof bundleId);
    utf8strlcpy(appPath, newAppPath, sizeof appPath);
    utf8strlcpy(skedName, newSkedName, sizeof skedName);

    const LGCDArmingPlan plan = LPlanArming(std::time(nullptr), start, daily, weekly, weekDays);
    for (size_t i = 0; i < plan.count; ++i) Arm(plan.armings[i].delay, plan.armings[i].interval, scheduler);
    oneOff = plan.oneOff;
}

void LGCDTimer::Arm(long delay, long interval, LGCDScheduler* scheduler) {
    dispatch_source_s* created = LGCDScheduler::CreateTimer(delay, interval, scheduler);
    if (created == nullptr) throw std::bad_alloc();
    auto* source = new (std::nothrow) LGCDSource(created);
    if (source == nullptr) {
        dispatch_source_cancel(created);
        dispatch_release(created);
        throw std::bad_alloc();
    }
    sources.Insert(source);
}
