// How late a firing is, up to the call of EvScheduleStart; and how long many that are due at one instant take until
// they are all told and removed. Beside them: a thread that sleeps, libevent, libuv, a multimap with a timerfd.
//
// The peers' callbacks do nothing but count: they have no schedule to find, no text to copy and nothing to remove.
#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <platform_testing.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <uv.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>

#include "app/LRequestKeys.h"
#include "bench/support.h"
#include "platform/linux/timer_source.h"
#include "scheduler/LGCDScheduler.h"

namespace {

constexpr char kApplication[] = "/usr";  // exists everywhere
constexpr int64_t kMillisecond = 1'000'000;
constexpr int64_t kSecond = 1'000'000'000;
constexpr size_t kPerSecond = 1'000;

// ---- Lateness: a thousand in one second, one each millisecond

/// Median and the value that one in a hundred exceeds, the earliest as a counter; the time counted is the median.
void Report(benchmark::State& state, std::vector<int64_t>& lateness) {
    std::sort(lateness.begin(), lateness.end());
    const auto at = [&](size_t percent) {
        return static_cast<double>(lateness[(lateness.size() - 1) * percent / 100]);
    };
    state.SetIterationTime(at(50) * 1e-9);
    state.counters["p50_us"] = at(50) / 1000;
    state.counters["p99_us"] = at(99) / 1000;
    state.counters["earliest_us"] = at(0) / 1000;
}

/// Notes the moment of each firing under the schedule's number.
class Noting : public LGCDScheduler {
  public:
    explicit Noting(size_t count) : fired_(count) {}
    ~Noting() override { StopFirings(); }
    using LGCDScheduler::EvScheduleStart;
    void EvScheduleStart(const char*, const char*, const char* skedName) override {
        const int64_t now = SteadyNanoseconds();
        fired_[std::strtoul(skedName + sizeof("Take ") - 1, nullptr, 10)] = now;
        if (told_.fetch_add(1) + 1 == fired_.size()) all_.release();
    }
    void WaitForAll() { all_.acquire(); }
    [[nodiscard]] int64_t Fired(size_t number) const { return fired_[number]; }

  private:
    std::vector<int64_t> fired_;
    std::atomic<size_t> told_{0};
    std::binary_semaphore all_{0};
};

void LatenessOurs(benchmark::State& state) {
    for (auto _ : state) {
        std::filesystem::remove_all(std::filesystem::path(StorePath()).parent_path());
        ReopenStore();
        Noting scheduler(kPerSecond);
        std::vector<int64_t> due(kPerSecond);
        const int64_t begin = SteadyNanoseconds();
        for (size_t number = 0; number < kPerSecond; ++number) {
            SleepUntil(begin + static_cast<int64_t>(number) * kMillisecond);
            scheduler.Add(kMainAppBundleId, kApplication, ScheduleName(number).c_str(),
                          LDateTime(std::time(nullptr) + 3), false, false, LWeekDay(0));
            due[number] = static_cast<int64_t>(scheduler.timers.head->sources.head->source->deadline);
        }
        scheduler.WaitForAll();
        for (size_t number = 0; number < kPerSecond; ++number) due[number] = scheduler.Fired(number) - due[number];
        Report(state, due);
    }
}

void LatenessSleep(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<int64_t> lateness(kPerSecond);
        int64_t due = SteadyNanoseconds() + 10 * kMillisecond;
        for (int64_t& each : lateness) {
            SleepUntil(due);
            each = SteadyNanoseconds() - due;
            due += kMillisecond;
        }
        Report(state, lateness);
    }
}

struct EventBase {
    EventBase() {
        event_config* const config = event_config_new();
        event_config_set_flag(config, EVENT_BASE_FLAG_PRECISE_TIMER);
        base = event_base_new_with_config(config);
        event_config_free(config);
    }
    ~EventBase() {
        for (event* each : events) event_free(each);
        event_base_free(base);
    }
    EventBase(const EventBase&) = delete;
    EventBase& operator=(const EventBase&) = delete;
    void Arm(int64_t delay, event_callback_fn callback, void* argument) {
        const timeval span{static_cast<time_t>(delay / kSecond), static_cast<suseconds_t>(delay % kSecond / 1000)};
        events.push_back(event_new(base, -1, 0, callback, argument));
        event_add(events.back(), &span);
    }
    event_base* base;
    std::vector<event*> events;
};

void LatenessLibevent(benchmark::State& state) {
    struct Slot {
        int64_t due = 0;
        int64_t fired = 0;
    };
    for (auto _ : state) {
        EventBase events;
        std::vector<Slot> slots(kPerSecond);
        int64_t delay = 10 * kMillisecond;
        for (Slot& slot : slots) {
            slot.due = SteadyNanoseconds() + delay;
            events.Arm(
                delay, [](evutil_socket_t, short, void* one) { static_cast<Slot*>(one)->fired = SteadyNanoseconds(); },
                &slot);
            delay += kMillisecond;
        }
        event_base_dispatch(events.base);
        std::vector<int64_t> lateness;
        for (const Slot& slot : slots) lateness.push_back(slot.fired - slot.due);
        Report(state, lateness);
    }
}

// ---- Many at one instant: counted from that instant until the last is told (and, ours, removed)

void AtOnceOurs(benchmark::State& state) {
    const auto count = static_cast<size_t>(state.range(0));
    std::filesystem::remove_all(std::filesystem::path(StorePath()).parent_path());
    ReopenStore();
    for (auto _ : state) {
        Noting scheduler(count);
        int64_t due = 0;
        {
            // While the clock stands still all get one deadline; then they follow the real one again. Delays count from
            // the calendar's seconds, of which none may begin meanwhile.
            std::this_thread::sleep_until(std::chrono::ceil<std::chrono::seconds>(std::chrono::system_clock::now()));
            const platform_testing::ManualClock still;
            StoreSchedules(count, kApplication, std::time(nullptr) + 2);
            scheduler.LoadFromSettings();
            due = static_cast<int64_t>(scheduler.timers.head->sources.head->source->deadline);
        }
        scheduler.WaitForAll();
        while (scheduler.HasSchedules()) std::this_thread::yield();
        state.SetIterationTime(static_cast<double>(SteadyNanoseconds() - due) * 1e-9);
    }
}

void AtOnceLibevent(benchmark::State& state) {
    for (auto _ : state) {
        EventBase events;
        const auto count = static_cast<size_t>(state.range(0));
        size_t told = 0;
        const int64_t due = SteadyNanoseconds() + 100 * kMillisecond;
        for (size_t i = 0; i < count; ++i) {
            events.Arm(
                due - SteadyNanoseconds(),
                [](evutil_socket_t, short, void* number) { ++*static_cast<size_t*>(number); }, &told);
        }
        event_base_dispatch(events.base);
        state.SetIterationTime(static_cast<double>(SteadyNanoseconds() - due) * 1e-9);
        if (told != count) state.SkipWithError("not all");
    }
}

void AtOnceLibuv(benchmark::State& state) {
    for (auto _ : state) {
        const auto count = static_cast<size_t>(state.range(0));
        uv_loop_t loop;
        uv_loop_init(&loop);
        std::vector<uv_timer_t> timers(count);
        for (uv_timer_t& timer : timers) {
            uv_timer_init(&loop, &timer);
            uv_timer_start(
                &timer, [](uv_timer_t*) {}, 100, 0);
        }
        const int64_t due = static_cast<int64_t>(uv_now(&loop) + 100) * kMillisecond;
        uv_run(&loop, UV_RUN_DEFAULT);
        state.SetIterationTime(static_cast<double>(SteadyNanoseconds() - due) * 1e-9);
        uv_loop_close(&loop);
    }
}

void AtOnceMultimap(benchmark::State& state) {
    for (auto _ : state) {
        size_t told = 0;
        std::multimap<int64_t, std::function<void()>> timers;
        const int64_t due = SteadyNanoseconds() + 100 * kMillisecond;
        for (int64_t i = 0; i < state.range(0); ++i) timers.emplace(due, [&told] { ++told; });
        const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
        itimerspec setting{};
        setting.it_value.tv_sec = static_cast<time_t>(due / kSecond);
        setting.it_value.tv_nsec = static_cast<long>(due % kSecond);
        timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &setting, nullptr);
        uint64_t expired = 0;
        if (read(descriptor, &expired, sizeof expired) < 0) state.SkipWithError("no timer");
        while (!timers.empty() && timers.begin()->first <= SteadyNanoseconds()) {
            timers.begin()->second();
            timers.erase(timers.begin());
        }
        state.SetIterationTime(static_cast<double>(SteadyNanoseconds() - due) * 1e-9);
        close(descriptor);
    }
}

void Counts(benchmark::internal::Benchmark* bench) {
    bench->Arg(1'000)->Arg(10'000)->Iterations(3)->UseManualTime()->Unit(benchmark::kMicrosecond);
}
void Once(benchmark::internal::Benchmark* bench) {
    bench->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(LatenessOurs)->Name("lateness/ours")->Apply(Once);
BENCHMARK(LatenessSleep)->Name("lateness/sleep")->Apply(Once);
BENCHMARK(LatenessLibevent)->Name("lateness/libevent")->Apply(Once);
BENCHMARK(AtOnceOurs)->Name("at_once/ours")->Apply(Counts);
BENCHMARK(AtOnceLibevent)->Name("at_once/libevent")->Apply(Counts);
BENCHMARK(AtOnceLibuv)->Name("at_once/libuv")->Apply(Counts);
BENCHMARK(AtOnceMultimap)->Name("at_once/multimap")->Apply(Counts);

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarks(argc, argv);
}
