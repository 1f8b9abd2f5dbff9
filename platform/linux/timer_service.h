// The one service that fires every timer source of the process, from one timerfd and one set of sources.
//
// The timerfd is set to the earliest deadline that anybody has armed. Cancelling does not set it back: the wake-up that
// is then too many finds nothing due and sets it anew. So arming costs a system call only when the new deadline is the
// earliest, cancelling never does, and without sources nothing ever wakes up.
//
// The lock is taken once to arm a source and once to cancel it, and for every eighth slot that a thread needs or has
// too many. A source that was never resumed is known to whoever made it alone, and setting its timer takes no lock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/linux/runtime.h"
#include "platform/linux/timer_memory.h"
#include "platform/linux/timer_set.h"

namespace runtime {

/// Makes the service and its descriptor and has the io loop watch it. Before the io thread runs, by start() only.
void createTimers();

class TimerService final : public IoWatcher {
  public:
    static TimerService& shared();

    /// For whoever has a source, and so has called shared() before.
    static TimerService& running() { return *theService; }

    /// Up to `most` slots for sources, at least one; every source in such a slot can be armed. Null when memory is out.
    [[nodiscard]] FreeSlot* takeSlots(size_t most) noexcept;
    void giveSlots(FreeSlot* slots) noexcept;

    void setTimer(dispatch_source_s* source, uint64_t start, uint64_t interval) noexcept;
    void resume(dispatch_source_s* source) noexcept;

    /// Marks the source as cancelled and takes it out of the set, at the first call.
    void cancel(dispatch_source_s* source) noexcept;

    /// Hands every source that is due to its queue, in order of deadline and arming. True when there was one.
    bool fireDue() noexcept;

    // Calls in flight: counted from leaving the idle phase to returning to it, for the manual clock's sake.
    void callBegins() noexcept { inFlight_.fetch_add(1, std::memory_order_relaxed); }
    void callEnded() noexcept;
    void waitForCalls() noexcept;

    /// Sets the timerfd to the earliest deadline. To be called after a change of clock: it follows the steady one only.
    void programForFirst() noexcept;

    void ready(uint32_t events) noexcept override;

  private:
    friend void createTimers();
    TimerService();

    /// Sources that are handed over without taking the lock again: few enough that nobody waits long for it.
    static constexpr size_t kBatch = 64;
    struct Due {
        dispatch_source_s* source;  // a reference is held
        bool post;                  // else the source is busy, and its running call will see to it
    };
    size_t collectDue(uint64_t now, Due (&batch)[kBatch]) noexcept;
    static void handOver(const Due (&batch)[kBatch], size_t count) noexcept;
    static bool takeFirst(dispatch_source_s* source, uint64_t now, Due& due) noexcept;
    void armLocked(dispatch_source_s* source) noexcept;
    void programLocked(uint64_t deadline) noexcept;

    static TimerService* theService;

    std::mutex mutex_;
    SourceMemory memory_;
    TimerSet armed_{memory_};
    uint64_t programmed_ = DISPATCH_TIME_FOREVER;  // what the timerfd is set to
    uint64_t nextOrder_ = 0;
    const int timer_;
    std::atomic<size_t> inFlight_{0};
    std::mutex idleMutex_;
    std::condition_variable idle_;
};

}  // namespace runtime
