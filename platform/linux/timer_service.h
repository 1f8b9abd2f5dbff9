// The one service that fires every timer source of the process, from one timerfd and one set of sources.
//
// The timerfd is set to the earliest deadline that anybody has armed. Cancelling does not set it back: the wake-up that
// is then too many finds nothing due and sets it anew. So arming costs a system call only when the new deadline is the
// earliest, cancelling never does, and without sources nothing ever wakes up.
//
// The lock is taken once to arm a source and once to cancel it. A source that was never resumed is known to whoever
// made it alone, and setting its timer takes no lock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/linux/runtime.h"
#include "platform/linux/timer_set.h"

namespace runtime {

/// Makes the service and its descriptor and has the io loop watch it. Before the io thread runs, by start() only.
void createTimers();

class TimerService final : public IoWatcher {
  public:
    static TimerService& shared();

    /// Room for one more source; a source that was admitted can always be armed. False when memory is out. The room is
    /// given back by `cancel`, or by `dismiss` when there is no source after all.
    [[nodiscard]] bool admit() noexcept;
    void dismiss() noexcept;

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
    void dismissLocked() noexcept;
    void programLocked(uint64_t deadline) noexcept;

    std::mutex mutex_;
    TimerSet armed_;
    uint64_t programmed_ = DISPATCH_TIME_FOREVER;  // what the timerfd is set to
    uint64_t nextOrder_ = 0;
    const int timer_;
    std::atomic<size_t> admitted_{0};   // ever; both may pass the end of their range together
    std::atomic<size_t> dismissed_{0};  // ever; changed under the lock
    std::atomic<size_t> room_{0};       // sources that the set has room for
    std::atomic<size_t> inFlight_{0};
    std::mutex idleMutex_;
    std::condition_variable idle_;
};

}  // namespace runtime
