#include "scheduler/LGCDArming.h"

#include <algorithm>
#include <limits>

namespace {

long SecondOfDay(const std::tm& fields) {
    return fields.tm_hour * 3600L + fields.tm_min * 60L + fields.tm_sec;
}

/// How much later in the day the start's time of day is than the present one; negative when it is earlier.
long TimeOfDayAhead(const std::tm& now, const std::tm& start) {
    return SecondOfDay(start) - SecondOfDay(now);
}

void Add(LGCDArmingPlan& plan, long delay, long interval) {
    plan.armings[plan.count++] = {delay, interval};
}

void PlanDaily(LGCDArmingPlan& plan, const std::tm& now, const std::tm& start) {
    long delay = TimeOfDayAhead(now, start);
    if (delay <= 0) delay += kSecondsPerDay;
    Add(plan, delay, kSecondsPerDay);
}

void PlanWeekly(LGCDArmingPlan& plan, const std::tm& now, const std::tm& start, LWeekDay weekDays) {
    for (int day = 0; day < 7; ++day) {
        if ((weekDays.mask & (1U << day)) == 0) continue;
        const int daysAhead = (day - now.tm_wday + 7) % 7;
        long delay = daysAhead * kSecondsPerDay + TimeOfDayAhead(now, start);
        if (delay <= 0) delay += kSecondsPerWeek;
        Add(plan, delay, kSecondsPerWeek);
    }
}

void PlanOneOff(LGCDArmingPlan& plan, int64_t now, LDateTime start) {
    if (start.seconds <= now) return;
    int64_t delay;
    if (__builtin_sub_overflow(int64_t{start.seconds}, now, &delay)) delay = std::numeric_limits<int64_t>::max();
    Add(plan, static_cast<long>(std::min<int64_t>(delay, std::numeric_limits<long>::max())), 0);
    plan.oneOff = true;
}

}  // namespace

LGCDArmingPlan LPlanArming(int64_t now, const std::tm* nowFields, LDateTime start, const std::tm* startFields,
                           bool daily, bool weekly, LWeekDay weekDays) {
    LGCDArmingPlan plan;
    if (!daily && !weekly) {
        PlanOneOff(plan, now, start);
    } else if (nowFields != nullptr && startFields != nullptr) {
        if (daily) {
            PlanDaily(plan, *nowFields, *startFields);
        } else {
            PlanWeekly(plan, *nowFields, *startFields, weekDays);
        }
    }
    return plan;
}

LGCDArmingPlan LPlanArming(int64_t now, LDateTime start, bool daily, bool weekly, LWeekDay weekDays) {
    if (!daily && !weekly) return LPlanArming(now, nullptr, start, nullptr, daily, weekly, weekDays);
    const auto nowMoment = static_cast<std::time_t>(now);
    const std::time_t startMoment = start.seconds;
    std::tm nowBuffer;
    std::tm startBuffer;
    return LPlanArming(now, localtime_r(&nowMoment, &nowBuffer), start, localtime_r(&startMoment, &startBuffer), daily,
                       weekly, weekDays);
}
