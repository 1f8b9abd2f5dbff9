// The first firing by another road: the zone's local second of the day or week is stepped on to the wanted one.
#include <gtest/gtest.h>

#include <climits>
#include <random>

#include "scheduler/LGCDArming.h"
#include "tests/datetime/local_zone.h"

namespace {

constexpr int64_t kWeek = 7 * 86400;
constexpr int64_t kThursday = 4 * 86400;  // the weekday of moment 0, counted from Sunday

int64_t StepsTo(int64_t from, int64_t to, int64_t period) {
    return (to - from - 1 + 10 * period) % period + 1;
}

/// Compares all plans of one pair of moments with the stepping.
void CheckPlans(const ZoneRule& zone, int64_t now, int64_t start, unsigned mask) {
    const LDateTime startValue(static_cast<long>(start));
    const int64_t nowWall = now + zone.OffsetAt(now);
    const int64_t startOfDay = (start + zone.OffsetAt(start)) % 86400;

    const LWeekDay days(static_cast<unsigned char>(mask));
    for (const bool weekly : {false, true}) {
        const LGCDArmingPlan plan = LPlanArming(now, startValue, true, weekly, days);
        const LGCDArming expected{static_cast<long>(StepsTo(nowWall % 86400, startOfDay, 86400)), 86400};
        ASSERT_TRUE(plan.count == 1 && plan.armings[0] == expected && !plan.oneOff) << zone.name << " " << now;
    }
    const LGCDArmingPlan plan = LPlanArming(now, startValue, false, true, days);
    size_t count = 0;
    for (unsigned day = 0; day < 7; ++day) {
        if ((mask & 1U << day) == 0) continue;
        const int64_t steps = StepsTo((nowWall + kThursday) % kWeek, day * 86400 + startOfDay, kWeek);
        ASSERT_LT(count, plan.count);
        ASSERT_EQ(plan.armings[count], (LGCDArming{static_cast<long>(steps), kWeek})) << zone.name << " " << now;
        ++count;
    }
    ASSERT_TRUE(plan.count == count && !plan.oneOff);

    const LGCDArmingPlan once = LPlanArming(now, startValue, false, false, days);
    ASSERT_TRUE(once.count == (start > now ? 1U : 0U) && once.oneOff == (start > now));
    ASSERT_TRUE(once.count == 0 || once.armings[0] == (LGCDArming{static_cast<long>(start - now), 0}));
}

TEST(Arming, AgreesWithSteppingInEveryZone) {
    std::mt19937_64 random(32);
    std::uniform_int_distribution<int64_t> moments(DaysFromCivil(2009, 2, 1) * 86400,
                                                   DaysFromCivil(2037, 12, 1) * 86400);
    for (const ZoneRule& zone : kZones) {
        const LocalZone local(zone.name);
        for (int i = 0; i < 1000; ++i) {
            int64_t now = moments(random);
            if (zone.saving != 0 && i % 4 == 0) {  // the days around a change
                now = Sunday(2010 + i % 27, zone.toMonth, zone.toSunday) * 86400 + zone.toSecond + now % 172800 - 86400;
            }
            const auto mask = static_cast<unsigned>(random() % 256);
            CheckPlans(zone, now, moments(random), mask);
            for (const int64_t near : {-1, 0, 1}) CheckPlans(zone, now, now + near + 86400 * (i % 15 - 7), mask);
        }
    }
}

TEST(Arming, EveryMaskOnEveryWeekdayAroundTheTimeOfDay) {
    const ZoneRule& zone = kZones[1];
    const LocalZone local(zone.name);
    for (int64_t day = 0; day < 7; ++day) {
        const int64_t now = DaysFromCivil(2026, 11, 22) * 86400 + day * 86400 + 43200;
        for (const int64_t ahead : {-10800, -1, 0, 1, 10800}) {
            for (unsigned mask = 0; mask < 128; ++mask) CheckPlans(zone, now, now + ahead, mask);
        }
    }
}

TEST(Arming, FarMomentsAndMomentsWithoutACalendarForm) {
    const LocalZone local("UTC");
    const auto once = [](int64_t now, long start) {
        return LPlanArming(now, LDateTime(start), false, false, LWeekDay());
    };
    EXPECT_EQ(once(-5, LONG_MAX).armings[0].delay, LONG_MAX);
    EXPECT_EQ(once(INT64_MIN, LONG_MAX).armings[0].delay, LONG_MAX);
    EXPECT_EQ(once(1000, LONG_MIN).count, 0U);
    if (sizeof(long) < 8) return;
    for (const long far : {LONG_MAX, LONG_MIN}) {
        EXPECT_EQ(LPlanArming(1000, LDateTime(far), true, true, LWeekDay(127)).count, 0U);
        EXPECT_EQ(LPlanArming(1000, LDateTime(far), false, true, LWeekDay(127)).count, 0U);
    }
}

}  // namespace
