// Queues and gates.
#include <gtest/gtest.h>
#include <platform_gate.h>
#include <platform_testing.h>

#include <atomic>
#include <latch>
#include <memory>
#include <new>
#include <semaphore>
#include <string>
#include <vector>

#include "platform/linux/runtime.h"
#include "tests/platform/dispatch_support.h"

using runtime::Job;
using runtime::SerialQueue;

namespace {

/// A target whose jobs run when the test says so.
struct HandTarget final : dispatch_queue_s {
    void post(Job* job) noexcept override { jobs.push(job); }
    bool runOne() {
        Job* job = jobs.pop();
        if (job != nullptr) job->run(job);
        return job != nullptr;
    }
    runtime::JobList jobs;
};

TEST(SerialQueue, GivesItsThreadBackBetweenTurns) {
    HandTarget target;
    SerialQueue queue(&target);
    int ran = 0;
    std::vector<std::unique_ptr<Step>> steps;
    for (int i = 0; i < 100; ++i) {
        steps.push_back(std::make_unique<Step>([&ran, i] { EXPECT_EQ(ran++, i); }));
        queue.post(steps.back().get());
    }
    int turns = 0, most = 0;
    for (int before = 0; target.runOne(); before = ran, ++turns) most = std::max(most, ran - before);
    EXPECT_EQ(ran, 100);
    EXPECT_GE(turns, 4);
    EXPECT_LE(most, 32);
}

TEST(SerialQueue, SuspensionIsCountedAndStopsATurnHalfWay) {
    HandTarget target;
    SerialQueue queue(&target);
    std::string ran;
    Step a([&] {
        ran += 'a';
        EXPECT_TRUE(queue.isCurrent());
        queue.suspend();
        queue.suspend();
    });
    Step b([&] { ran += 'b'; });
    queue.post(&a);
    queue.post(&b);
    while (target.runOne()) {
    }
    EXPECT_EQ(ran, "a");
    queue.resume();
    EXPECT_FALSE(target.runOne());
    queue.resume();
    queue.resume();  // one too many
    while (target.runOne()) {
    }
    EXPECT_EQ(ran, "ab");
    EXPECT_FALSE(queue.isCurrent());
}

TEST(SerialQueue, RunsOneJobAtATimeInEachPostersOrder) {
    constexpr int kPosters = 4, kEach = 2'000;
    SerialQueue queue(nullptr);
    std::latch done(kPosters * kEach);
    int last[kPosters] = {};  // without a lock: the queue is the lock
    bool ordered = true;
    std::vector<std::unique_ptr<Step>> steps[kPosters];
    std::vector<std::thread> posters;
    posters.reserve(kPosters);
    for (int poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (int i = 1; i <= kEach; ++i) {
                steps[poster].push_back(std::make_unique<Step>([&, poster, i] {
                    ordered = ordered && last[poster]++ == i - 1;
                    done.count_down();
                }));
                queue.post(steps[poster].back().get());
            }
        });
    }
    for (std::thread& poster : posters) poster.join();
    done.wait();
    EXPECT_TRUE(ordered);
}

/// What a queue is part of: its one job ends it, or tells the test to.
struct Owner final : Job {
    explicit Owner(std::atomic<Owner*>* lastHold) : Job(perform), handOver(lastHold) { queue.post(this); }
    static void perform(Job* job) {
        auto* self = static_cast<Owner*>(job);
        if (self->handOver == nullptr) {
            delete self;
        } else {
            self->handOver->store(self);
        }
    }
    SerialQueue queue{nullptr};
    std::atomic<Owner*>* handOver;
};

TEST(SerialQueue, MayBeDestroyedByItsLastJobOrRightAfterIt) {
    for (int trial = 0; trial < 2'000; ++trial) {
        new Owner(nullptr);
        std::atomic<Owner*> ended{nullptr};
        new Owner(&ended);
        while (ended.load() == nullptr) std::this_thread::yield();
        delete ended.load();
    }
}

TEST(Dispatch, BlocksKeepTheirQueueAndAreDestroyedAfterTheyRan) {
    std::binary_semaphore go{0}, done{0};
    dispatch_queue_t queue = dispatch_queue_create("test", nullptr);
    auto alive = std::make_shared<int>(0);
    const std::weak_ptr<int> block = alive;
    std::string ran;
    dispatch_async(queue, [&] { go.acquire(); });
    dispatch_async(queue, [&, alive = std::move(alive)] { ran += 'a'; });
    dispatch_async(queue, [&]() -> void { throw std::bad_alloc(); });
    dispatch_async(queue, [&] {
        EXPECT_TRUE(block.expired());
        ran += 'b';
        done.release();
    });
    dispatch_release(queue);
    go.release();
    done.acquire();
    EXPECT_EQ(ran, "ab");
}

TEST(Dispatch, TimeSaturates) {
    const platform_testing::ManualClock clock;
    const dispatch_time_t now = dispatch_time(DISPATCH_TIME_NOW, 0);
    const struct {
        dispatch_time_t when;
        int64_t delta;
        dispatch_time_t expected;
    } rows[] = {
        {DISPATCH_TIME_NOW, 5, now + 5},
        {DISPATCH_TIME_NOW, -5, now - 5},
        {DISPATCH_TIME_NOW, INT64_MAX, DISPATCH_TIME_FOREVER},
        {DISPATCH_TIME_NOW, INT64_MIN, 1},
        {100, 5, 105},
        {100, -99, 1},
        {100, -100, 1},
        {100, INT64_MIN, 1},
        {100, INT64_MAX - 100, INT64_MAX},
        {100, INT64_MAX - 99, DISPATCH_TIME_FOREVER},
        {DISPATCH_TIME_FOREVER, -5, DISPATCH_TIME_FOREVER},
        {DISPATCH_TIME_FOREVER - 1, 5, DISPATCH_TIME_FOREVER},
    };
    for (const auto& row : rows) EXPECT_EQ(dispatch_time(row.when, row.delta), row.expected) << row.delta;
}

TEST(Gate, ClosingWaitsForOthersRefusesNewcomersAndNeverWaitsForItself) {
    PlatformGate gate;
    std::binary_semaphore inside{0};
    std::atomic<bool> left{false};
    std::thread visitor([&] {
        const PlatformGate::Pass pass(gate);
        inside.release();
        const auto closed = [&] { return !PlatformGate::Pass(gate); };
        waitUntil(closed);  // the owner is closing meanwhile
        left = true;
    });
    inside.acquire();
    const PlatformGate::Pass own(gate), again(gate);
    EXPECT_TRUE(own && again);
    gate.close();
    EXPECT_TRUE(left.load());
    EXPECT_FALSE(PlatformGate::Pass(gate));
    gate.close();
    visitor.join();
}

}  // namespace
