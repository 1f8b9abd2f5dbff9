// Arming and cancelling one timer among many that are armed already, beside libevent and libuv, and beside a heap
// written out by hand, which does nothing else.
//
// With that many armed, one picked at random is cancelled and armed again with a random deadline within a week: a
// cancel and an arm, counted together. Ours frees and makes a source each time, as the scheduler does; the peers get
// their timer structures for nothing.
#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <malloc.h>
#include <unistd.h>
#include <uv.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <random>
#include <vector>

#include <dispatch/dispatch.h>

namespace {

constexpr uint64_t kHour = 3'600'000;  // in milliseconds
constexpr uint64_t kWeek = 7 * 24 * kHour;

/// Deadlines an hour to a week ahead, so that none falls due meanwhile; the same for everybody.
class Deadlines {
  public:
    uint64_t milliseconds() { return kHour + generator_() % (kWeek - kHour); }
    size_t slot(size_t count) { return generator_() % count; }

  private:
    std::mt19937_64 generator_{2026};
};

/// `Timers` offers arm(slot, milliseconds) and cancel(slot) for `count` slots.
template <typename Timers>
void ArmAndCancel(benchmark::State& state) {
    const auto armed = static_cast<size_t>(state.range(0));
    Deadlines deadlines;
    Timers timers(armed);
    for (size_t slot = 0; slot < armed; ++slot) timers.arm(slot, deadlines.milliseconds());
    for (auto _ : state) {
        const size_t slot = deadlines.slot(armed);
        timers.cancel(slot);
        timers.arm(slot, deadlines.milliseconds());
    }
    for (size_t slot = 0; slot < armed; ++slot) timers.cancel(slot);
}

class Ours {
  public:
    explicit Ours(size_t count) : sources_(count) {}
    void arm(size_t slot, uint64_t milliseconds) {
        const dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue_);
        dispatch_source_set_timer(source,
                                  dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(milliseconds * 1'000'000)),
                                  DISPATCH_TIME_FOREVER, 0);
        dispatch_source_set_event_handler(source, [this, slot] { sources_[slot] = nullptr; });
        dispatch_resume(source);
        sources_[slot] = source;
    }
    void cancel(size_t slot) {
        dispatch_source_cancel(sources_[slot]);
        dispatch_release(sources_[slot]);
    }

  private:
    dispatch_queue_t queue_ = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
    std::vector<dispatch_source_t> sources_;
};

class Libevent {
  public:
    explicit Libevent(size_t count) : base_(event_base_new()), events_(new event[count]) {}
    ~Libevent() { event_base_free(base_); }
    Libevent(const Libevent&) = delete;
    Libevent& operator=(const Libevent&) = delete;
    void arm(size_t slot, uint64_t milliseconds) {
        event_assign(
            &events_[slot], base_, -1, 0, [](evutil_socket_t, short, void*) {}, nullptr);
        const timeval delay{static_cast<time_t>(milliseconds / 1000),
                            static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
        event_add(&events_[slot], &delay);
    }
    void cancel(size_t slot) { event_del(&events_[slot]); }

  private:
    event_base* base_;
    std::unique_ptr<event[]> events_;
};

class Libuv {
  public:
    explicit Libuv(size_t count) : timers_(new uv_timer_t[count]) {
        uv_loop_init(&loop_);
        for (size_t slot = 0; slot < count; ++slot) uv_timer_init(&loop_, &timers_[slot]);
    }
    void arm(size_t slot, uint64_t milliseconds) {
        uv_timer_start(
            &timers_[slot], [](uv_timer_t*) {}, milliseconds, 0);
    }
    void cancel(size_t slot) { uv_timer_stop(&timers_[slot]); }

  private:
    uv_loop_t loop_{};
    std::unique_ptr<uv_timer_t[]> timers_;
};

/// The least that a heap can do: four children, a place kept in each timer, no lock, no clock.
class ByHand {
  public:
    explicit ByHand(size_t count) : places_(count) { heap_.reserve(count); }
    void arm(size_t slot, uint64_t milliseconds) {
        heap_.push_back({milliseconds, slot});
        up(heap_.size() - 1);
    }
    void cancel(size_t slot) {
        const size_t place = places_[slot];
        heap_[place] = heap_.back();
        heap_.pop_back();
        if (place == heap_.size()) return;
        places_[heap_[place].slot] = place;
        up(place);
        down(places_[heap_[place].slot]);
    }

  private:
    struct Node {
        uint64_t deadline;
        size_t slot;
    };
    void put(size_t place, const Node& node) {
        heap_[place] = node;
        places_[node.slot] = place;
    }
    void up(size_t place) {
        const Node node = heap_[place];
        while (place > 0 && node.deadline < heap_[(place - 1) / 4].deadline) {
            put(place, heap_[(place - 1) / 4]);
            place = (place - 1) / 4;
        }
        put(place, node);
    }
    void down(size_t place) {
        const Node node = heap_[place];
        for (;;) {
            const size_t first = place * 4 + 1;
            if (first >= heap_.size()) break;
            size_t least = first;
            for (size_t child = first + 1; child < std::min(first + 4, heap_.size()); ++child) {
                if (heap_[child].deadline < heap_[least].deadline) least = child;
            }
            if (node.deadline <= heap_[least].deadline) break;
            put(place, heap_[least]);
            place = least;
        }
        put(place, node);
    }
    std::vector<Node> heap_;
    std::vector<size_t> places_;
};

size_t residentBytes() {
    malloc_trim(0);
    std::ifstream file("/proc/self/statm");
    size_t pages = 0;
    file >> pages >> pages;  // the second number
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

/// What an armed source costs in memory, from wherever it comes, with its handler and its share of what finds it.
void BytesPerSource(benchmark::State& state) {
    constexpr size_t kSources = 100'000;
    double bytes = 0;
    for (auto _ : state) {
        Deadlines deadlines;
        Ours timers(kSources);
        const size_t before = residentBytes();
        for (size_t slot = 0; slot < kSources; ++slot) timers.arm(slot, deadlines.milliseconds());
        bytes = static_cast<double>(residentBytes() - before) / static_cast<double>(kSources);
        for (size_t slot = 0; slot < kSources; ++slot) timers.cancel(slot);
    }
    state.counters["bytes"] = bytes;
}
// The first, so that nothing has left memory behind that would be used again.
BENCHMARK(BytesPerSource)->Name("timer_bytes/ours")->Iterations(1);

void Sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(1'000)->Arg(100'000)->Arg(1'000'000);
}

BENCHMARK_TEMPLATE(ArmAndCancel, Ours)->Name("timer/ours")->Apply(Sizes);
BENCHMARK_TEMPLATE(ArmAndCancel, Libevent)->Name("timer/libevent")->Apply(Sizes);
BENCHMARK_TEMPLATE(ArmAndCancel, Libuv)->Name("timer/libuv")->Apply(Sizes);
BENCHMARK_TEMPLATE(ArmAndCancel, ByHand)->Name("timer/limit")->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
