#include <atomic>
#include <chrono>
#include <latch>
#include <set>
#include <thread>

#include "scheduler_fixture.h"

namespace {

using Names = std::vector<std::string>;

TEST_F(SchedulerTest, AOneOffFiresOnceAndLeavesMemoryButNotTheStore) {
    Once("A", 1000);
    Once("later", 5000);
    clock.advance(900 * kSecond);
    EXPECT_EQ(scheduler.Fired(), Names());
    clock.advance(100 * kSecond);
    EXPECT_EQ(scheduler.Fired(), Names{"A"});
    EXPECT_EQ(Timers(), "later1!");
    EXPECT_EQ(Stored(), "/a.appA /a.applater");
    clock.advance(10000 * kSecond);
    EXPECT_EQ(scheduler.Fired(), (Names{"A", "later"}));
    EXPECT_FALSE(scheduler.HasSchedules());
}

TEST_F(SchedulerTest, RepeatsKeepTheirInterval) {
    Add(app, "daily", 0, true, true, 127);
    for (size_t day = 1; day <= 3; ++day) {
        clock.advance(86400 * kSecond);
        EXPECT_EQ(scheduler.Fired(), Names(day, "daily"));
    }
    scheduler.Delete(kId, app.c_str(), "daily");
    Add(app, "weekly", 0, false, true, 0x15);
    for (size_t week = 1; week <= 2; ++week) {
        clock.advance(604800 * kSecond);
        EXPECT_EQ(scheduler.Fired().size(), 3 + 3 * week);
    }
    EXPECT_EQ(Timers(), "weekly3");
}

TEST_F(SchedulerTest, FiringsRunSideBySideAndMayChangeSchedules) {
    std::latch together(2);  // neither passes before the other has come
    scheduler.onFire = [&](const std::string& name) {
        if (name != "gone") together.arrive_and_wait();
        if (name == "replaced") Daily("replaced");
        if (name == "gone") scheduler.DeleteAll(kId, app.c_str());
    };
    Once("replaced", 1000);
    Add(folder + "/b.app", "other", 1000, false, false, 0);
    clock.advance(1000 * kSecond);
    EXPECT_EQ(Timers(), "replaced1");
    EXPECT_EQ(scheduler.Fired().size(), 2U);
    Once("gone", 1000);
    clock.advance(1000 * kSecond);
    EXPECT_EQ(Timers(), "");
}

TEST_F(SchedulerTest, AFiringWhoseScheduleIsGoneIsNotTold) {
    Once("A", 1000);
    dispatch_source_s* source = scheduler.timers.head->sources.head->source;
    dispatch_retain(source);
    scheduler.Delete(kId, app.c_str(), "A");
    scheduler.EvScheduleStart(source);
    clock.advance(2000 * kSecond);
    dispatch_release(source);
    EXPECT_EQ(scheduler.Fired(), Names());
}

TEST_F(SchedulerTest, StopFiringsWaitsForThoseUnderWay) {
    std::latch inside(1);
    std::atomic<bool> left = false;
    scheduler.onFire = [&](const std::string&) {
        inside.count_down();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // time for a stop that would not wait
        left = true;
    };
    Once("A", 1000);
    Once("B", 3000);
    std::thread stopper([&] {
        inside.wait();
        scheduler.StopFirings();
        EXPECT_TRUE(left);
    });
    clock.advance(1000 * kSecond);
    stopper.join();
    clock.advance(5000 * kSecond);
    EXPECT_EQ(scheduler.Fired(), Names{"A"});
}

TEST_F(SchedulerTest, ManyOneOffsAtOneInstant) {
    constexpr size_t kMany = 10000;
    const LDateTime due(static_cast<long>(std::time(nullptr)) + 1000);
    NSMutableArray index;
    for (size_t i = 0; i < kMany; ++i) {
        const std::string name = std::to_string(i);
        Store().setObject(LScheduleRecordToDictionary({kId, app, name, due, false, false, LWeekDay()}), Key(name));
        index.addObject(Key(name));
    }
    Store().setObject(index, kScheduleIndexKey);
    scheduler.LoadFromSettings();
    clock.advance(1000 * kSecond);
    const Names fired = scheduler.Fired();
    EXPECT_EQ(fired.size(), kMany);
    EXPECT_EQ(std::set<std::string>(fired.begin(), fired.end()).size(), kMany);
    EXPECT_FALSE(scheduler.HasSchedules());
}

}  // namespace
