// One timer source: its states and its calls. timer_service.h fires them all.
//
// Three parties meet in a source: the io thread finds it due, a queue runs its job, and anyone may cancel it. What they
// agree on is one atomic word, `state`: a phase (idle, queued, running) and two flags. Only the step from queued to
// running lets the handler start, and it is refused once the cancel flag is set; so after a cancel no call starts,
// and nobody ever waits. Occurrences that fall due while the source is not idle are added up and noted by a flag; the
// end of the running call sees it and queues the source again.
//
// The queued job is the source itself, and whoever leaves the idle phase holds a reference until it is idle again.
// Deadlines and the set are guarded by the service's lock, and so is leaving the idle phase.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/linux/runtime.h"
#include "platform/linux/timer_set.h"

struct alignas(64) dispatch_source_s final : runtime::Job {
    explicit dispatch_source_s(dispatch_queue_t target);
    ~dispatch_source_s();
    /// In a slot of the timer memory, to which the last release gives it back. Null when memory is out.
    static dispatch_source_s* create(dispatch_queue_t target) noexcept;

    /// False when the last reference is gone already: the source is on its way out of the set.
    [[nodiscard]] bool retainIfAlive() noexcept;
    void retain() noexcept { references.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept;

    /// Adds occurrences; true when the caller has to post the source (a reference is taken for that). This and the two
    /// steps that follow are taken under the service's lock; `set` without it as long as nobody has resumed the source.
    [[nodiscard]] bool noteOccurrences(uint64_t count) noexcept;

    /// False when the source was cancelled before.
    bool markCancelled() noexcept;
    /// Takes a deadline, and an interval or 0 for none; what has fallen due so far is forgotten.
    void set(uint64_t start, uint64_t every) noexcept;

    [[nodiscard]] bool isCancelled() const noexcept {
        return (state.load(std::memory_order_acquire) & kCancelled) != 0;
    }

    static void fire(Job* job);

    static constexpr uint32_t kIdle = 0, kQueued = 1, kRunning = 2, kPhase = 3;
    static constexpr uint32_t kCancelled = 4, kWaiting = 8;

    // Up to the handler all that a cancel and the last release touch, with the job in one cache line.
    std::atomic<uint32_t> references{1};
    std::atomic<uint32_t> state{kIdle};
    dispatch_queue_t queue;
    dispatch_block_t handler;

    std::atomic<uint64_t> occurrences{0};
    unsigned long data = 0;  // occurrences of the running call; touched by that call only

    // Under the service's lock, once the source was resumed.
    uint64_t deadline = DISPATCH_TIME_FOREVER;
    uint64_t interval = DISPATCH_TIME_FOREVER;
    uint64_t order = 0;
    uint32_t place = runtime::TimerHeap::kNowhere;  // the set's
    std::atomic<bool> resumed{false};               // once and for all

  private:
    void destroy() noexcept;
    [[nodiscard]] bool beginCall() noexcept;
    [[nodiscard]] bool endCall() noexcept;
    void callHandler() noexcept;
};
