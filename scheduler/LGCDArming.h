// When a schedule fires for the first time and how often after that: the arithmetic alone.
//
// Everything is counted from "now", the moment of arming. The first firing of a repeating schedule is found from local
// times of day; its later firings follow at a fixed interval on the monotonic clock, so a change of daylight time moves
// them until the schedule is armed again. A time of day that equals the present second counts as past.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "datetime/LDateTime.h"

constexpr long kSecondsPerDay = 86400;
constexpr long kSecondsPerWeek = 604800;

/// One timer source to be: seconds until its first firing (1 or more), and between firings (0: fires once).
struct LGCDArming {
    long delay = 0;
    long interval = 0;

    friend bool operator==(const LGCDArming&, const LGCDArming&) = default;
};

/// What to arm for one schedule: none, one, or up to seven sources, in the order of arming.
struct LGCDArmingPlan {
    std::array<LGCDArming, 7> armings{};
    size_t count = 0;
    /// The plan's one source belongs to a one-off schedule.
    bool oneOff = false;
};

/// The plan of a schedule at the moment `now`. `daily` wins over `weekly`; with neither it is a one-off.
///
/// `nowFields` and `startFields` are the local fields of both moments, null where a moment has none. A repeating
/// schedule needs both and plans nothing without; a one-off needs neither. Differences beyond `long` stay at its end.
LGCDArmingPlan LPlanArming(int64_t now, const std::tm* nowFields, LDateTime start, const std::tm* startFields,
                           bool daily, bool weekly, LWeekDay weekDays);

/// The same with the fields of this process's time zone.
LGCDArmingPlan LPlanArming(int64_t now, LDateTime start, bool daily, bool weekly, LWeekDay weekDays);
