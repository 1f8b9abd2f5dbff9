// Timer sources: when they fire, how often, and what cancelling guarantees.
#include <gtest/gtest.h>
#include <platform_testing.h>

#include <algorithm>
#include <compare>
#include <map>
#include <memory>
#include <random>
#include <semaphore>
#include <set>
#include <utility>
#include <vector>

#include "platform/linux/runtime.h"
#include "platform/linux/timer_source.h"
#include "tests/platform/dispatch_support.h"

using platform_testing::ManualClock;

namespace {

dispatch_queue_t workers() {
    return dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
}

bool isQueued(dispatch_source_t source) {
    return (source->state.load() & dispatch_source_s::kPhase) == dispatch_source_s::kQueued;
}

TEST(TimerSource, FiresInStepWithTheClock) {
    constexpr uint64_t once = DISPATCH_TIME_FOREVER;
    constexpr int64_t year = 31'536'000'000'000'000;
    struct Row {
        const char* name;
        int64_t delay;
        uint64_t interval;
        std::vector<uint64_t> advances;
        std::vector<unsigned long> counts;  // occurrences reported after each advance; 0: no call
    };
    const Row rows[] = {
        {"once, not early, not again", 10, once, {9, 1, 100}, {0, 1, 0}},
        {"already due", 0, once, {0, 1}, {1, 0}},
        {"due long ago", -5, once, {0}, {1}},
        {"repeats", 10, 5, {9, 1, 4, 1, 5}, {0, 1, 0, 1, 1}},
        {"coalesces, phase kept", 10, 5, {27, 2, 1}, {4, 0, 1}},
        {"late by exactly one interval", 10, 5, {15}, {2}},
        {"no interval", 10, 0, {10, 10}, {1, 0}},
        {"a day over ten years", 86'400'000'000'000, 86'400'000'000'000, {10 * year}, {3650}},
        {"beyond the end of time", INT64_MAX, 1, {100 * year, 100 * year}, {0, 0}},
        {"interval beyond the end of time", 10, once - 1, {10, 100 * year}, {1, 0}},
        {"interval past the signed end", 10, uint64_t{1} << 63, {10, 100 * year}, {1, 0}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ManualClock clock;
        unsigned long calls = 0, count = 0;
        dispatch_source_t source = nullptr;
        Timer timer(workers(), [&] {
            ++calls;
            count = dispatch_source_get_data(source);
        });
        source = timer.source;
        timer.arm(dispatch_time(DISPATCH_TIME_NOW, row.delay), row.interval);
        for (size_t i = 0; i < row.advances.size(); ++i) {
            calls = count = 0;
            clock.advance(row.advances[i]);
            EXPECT_EQ(count, row.counts[i]) << "advance " << i;
            EXPECT_EQ(calls, row.counts[i] != 0 ? 1U : 0U) << "advance " << i;
        }
    }
}

/// Sources beside what they ought to be: an ordered map from deadline and order of arming to a number.
class Modelled {
  public:
    explicit Modelled(uint64_t span) : span_(span) {}

    uint64_t any(uint64_t below) { return random_() % below; }
    size_t anyOne() { return static_cast<size_t>(any(timers_.size())); }

    void add() {
        const size_t number = timers_.size();
        timers_.push_back(std::make_unique<Timer>(&queue_, [this, number] { fired_.push_back(number); }));
        keys_.emplace_back();
        set(number, any(4) == 0 ? 1 + any(span_) : DISPATCH_TIME_FOREVER);
        dispatch_resume(timers_[number]->source);
    }
    void setAnew() { set(anyOne(), DISPATCH_TIME_FOREVER); }
    void cancel() {
        const size_t number = anyOne();
        dispatch_source_cancel(timers_[number]->source);
        model_.erase(keys_[number]);
    }
    void advance() {
        const uint64_t step = any(span_ / 8 + 2);
        now_ += step;
        std::vector<size_t> expected;
        for (auto due = model_.begin(); due != model_.end() && due->first.deadline <= now_; due = model_.begin()) {
            auto entry = model_.extract(due);
            expected.push_back(entry.mapped().number);
            if (entry.mapped().interval == DISPATCH_TIME_FOREVER) continue;
            uint64_t& deadline = entry.key().deadline;
            while (deadline <= now_) deadline += entry.mapped().interval;
            keys_[expected.back()] = entry.key();
            model_.insert(std::move(entry));
        }
        fired_.clear();
        clock_.advance(step);
        ASSERT_EQ(fired_, expected);
    }

  private:
    struct Key {
        uint64_t deadline = 0;
        uint64_t order = 0;
        auto operator<=>(const Key&) const = default;
    };
    struct Entry {
        size_t number;
        uint64_t interval;
    };
    void set(size_t number, uint64_t interval) {
        const bool cancelled = timers_[number]->source->isCancelled();
        model_.erase(keys_[number]);
        keys_[number] = {now_ + 1 + any(span_), ++order_};
        dispatch_source_set_timer(timers_[number]->source, keys_[number].deadline, interval, 0);
        if (!cancelled) model_[keys_[number]] = {number, interval};
    }

    ManualClock clock_;
    runtime::SerialQueue queue_{nullptr};
    std::mt19937_64 random_{2026};
    const uint64_t span_;  // of the deadlines
    uint64_t now_ = dispatch_time(DISPATCH_TIME_NOW, 0);
    uint64_t order_ = 0;
    std::vector<std::unique_ptr<Timer>> timers_;
    std::vector<Key> keys_;
    std::map<Key, Entry> model_;
    std::vector<size_t> fired_;
};

TEST(TimerSource, FiresAsAnOrderedMapWould) {
    constexpr uint64_t week = 604'800'000'000'000;
    for (auto [span, count] : {std::pair{uint64_t{13}, 1'000}, {10'000, 1'000}, {week, 20'000}}) {
        SCOPED_TRACE(span);
        Modelled sources(span);
        for (int i = 0; i < count; ++i) sources.add();
        for (int step = 0; step < 6'000 && !testing::Test::HasFatalFailure(); ++step) {
            const uint64_t choice = sources.any(16);
            if (choice < 5) sources.add();
            if (choice >= 5 && choice < 9) sources.cancel();
            if (choice >= 9 && choice < 14) sources.setAnew();
            if (choice >= 14) sources.advance();
        }
    }
}

TEST(TimerMemory, HandsOutNoSlotTwiceAndGivesEmptyBlocksBack) {
    runtime::SourceMemory memory;
    std::mt19937_64 random(2026);
    std::set<runtime::FreeSlot*> held;
    for (size_t most : {40'000, 1, 20'000, 40'000, 0}) {
        while (held.size() < most) {
            for (auto *slot = memory.take(7), *next = slot; slot != nullptr; slot = next) {
                next = slot->next;
                ASSERT_TRUE(held.insert(slot).second);
            }
        }
        std::vector<runtime::FreeSlot*> given(held.begin(), held.end());
        std::shuffle(given.begin(), given.end(), random);
        given.resize(given.size() - most / 2);
        for (runtime::FreeSlot* slot : given) {
            held.erase(slot);
            slot->next = nullptr;
            memory.give(slot);
        }
    }
    EXPECT_EQ(memory.slots(), 0U);
    EXPECT_EQ(memory.blocks(), nullptr);
}

TEST(TimerSource, CoalescesWhatFallsDueWhileItsHandlerRuns) {
    ManualClock clock;
    std::binary_semaphore entered{0}, go{0};
    std::vector<unsigned long> counts;
    dispatch_source_t source = nullptr;
    Timer timer(workers(), [&] {
        counts.push_back(dispatch_source_get_data(source));
        if (counts.size() > 1) return;
        entered.release();
        go.acquire();
    });
    source = timer.source;
    timer.arm(dispatch_time(DISPATCH_TIME_NOW, 10), 10);
    std::thread first([&] { clock.advance(10); });
    entered.acquire();
    std::thread second([&] { clock.advance(35); });
    waitUntil([&] { return source->occurrences.load() == 3; });
    go.release();
    first.join();
    second.join();
    EXPECT_EQ(counts, (std::vector<unsigned long>{1, 3}));
    clock.advance(5);
    EXPECT_EQ(counts.back(), 1U) << "the phase is still the start's";
}

TEST(TimerSource, MayBeCancelledReleasedAndSetAnewInItsHandler) {
    ManualClock clock;
    int calls = 0;
    auto alive = std::make_shared<int>(0);
    const std::weak_ptr<int> handler = alive;
    dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, workers());
    dispatch_source_set_event_handler(source, [&, alive = std::move(alive)] {
        if (++calls == 1) return dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, 3), 1, 0);
        dispatch_source_cancel(source);
        dispatch_source_cancel(source);
        dispatch_release(source);
        EXPECT_FALSE(handler.expired()) << "a running handler is not destroyed";
    });
    dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, 1), 1, 0);
    dispatch_resume(source);
    for (int expected : {1, 1, 1, 2, 2}) {
        clock.advance(1);
        EXPECT_EQ(calls, expected);
    }
    EXPECT_TRUE(handler.expired()) << "the source is gone once its call has returned";
}

TEST(TimerSource, CancelForbidsACallThatIsQueuedAndKeepsTheAddress) {
    ManualClock clock;
    runtime::SerialQueue queue(nullptr);
    int calls = 0;
    auto alive = std::make_shared<int>(0);
    const std::weak_ptr<int> handler = alive;
    dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, &queue);
    dispatch_source_set_event_handler(source, [&calls, alive = std::move(alive)] { ++calls; });
    dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, 1), 1, 0);
    dispatch_resume(source);
    queue.suspend();
    std::thread advancing([&] { clock.advance(1); });
    waitUntil([&] { return isQueued(source); });
    dispatch_source_cancel(source);
    dispatch_release(source);
    EXPECT_FALSE(handler.expired()) << "the queued call holds the source, so its address is not used again";
    queue.resume();
    advancing.join();
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(handler.expired());
}

// From here on the steady clock: the timerfd has to be right as well.

TEST(TimerSource, AnEarlierDeadlineArmedLaterFiresFirstAndNoneFiresEarly) {
    constexpr int64_t kMillisecond = 1'000'000;
    runtime::SerialQueue queue(nullptr);
    std::counting_semaphore<3> fired{0};
    std::vector<int> order;
    bool early = false;
    std::vector<std::unique_ptr<Timer>> timers;
    for (int delay : {30, 20, 10}) {
        const dispatch_time_t start = dispatch_time(DISPATCH_TIME_NOW, delay * kMillisecond);
        timers.push_back(std::make_unique<Timer>(&queue, [&, delay, start] {
            order.push_back(delay);
            early = early || dispatch_time(DISPATCH_TIME_NOW, 0) < start;
            fired.release();
        }));
        timers.back()->arm(start);
    }
    Timer cancelled(&queue, [] { FAIL(); });  // leaves a wake-up with nothing due behind it
    cancelled.arm(dispatch_time(DISPATCH_TIME_NOW, 5 * kMillisecond));
    dispatch_source_cancel(cancelled.source);
    for (int i = 0; i < 3; ++i) fired.acquire();
    EXPECT_EQ(order, (std::vector<int>{10, 20, 30}));
    EXPECT_FALSE(early);
}

}  // namespace
