#include "scheduler/LGCDTimer.h"

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
int CompareFolded(const char* left, const char* right) {
    while (*left != '\0' && (*left == *right || Folded(*left) == Folded(*right))) {
        ++left;
        ++right;
    }
    return Folded(*left) - Folded(*right);
}

/// Negative, 0 or positive. A null name on either side equals every name.
int Compare(const LGCDTimerTexts& left, const LGCDTimerTexts& right) {
    if (const int order = CompareFolded(left.bundleId, right.bundleId); order != 0) return order;
    if (const int order = CompareFolded(left.appPath, right.appPath); order != 0) return order;
    if (left.skedName == nullptr || right.skedName == nullptr) return 0;
    return CompareFolded(left.skedName, right.skedName);
}

LGCDTimerTexts TextsOf(const LGCDTimer* timer) {
    return {timer->bundleId, timer->appPath, timer->skedName};
}

}  // namespace

LGCDSource::~LGCDSource() {
    dispatch_source_cancel(source);
    dispatch_release(source);
}

bool LGCDTimerOrder::operator()(const LGCDTimer* left, const LGCDTimer* right) const {
    return Compare(TextsOf(left), TextsOf(right)) < 0;
}

bool LGCDTimerOrder::operator()(const LGCDTimer* left, const LGCDTimerTexts& right) const {
    return Compare(TextsOf(left), right) < 0;
}

bool LGCDTimerOrder::operator()(const LGCDTimerTexts& left, const LGCDTimer* right) const {
    return Compare(left, TextsOf(right)) < 0;
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
