#include "platform/linux/timer_service.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstdlib>

#include "platform/linux/clock.h"
#include "platform/linux/io_thread.h"
#include "platform/linux/timer_source.h"

namespace runtime {

namespace {

/// Moves the source's deadline past `now`; returns how many of its occurrences that passes over.
uint64_t passOver(dispatch_source_s& source, uint64_t now) {
    if (source.interval == kNever) {
        source.deadline = kNever;
        return 1;
    }
    const uint64_t further = (now - source.deadline) / source.interval;
    uint64_t span = 0;
    const bool beyond = __builtin_mul_overflow(further + 1, source.interval, &span);
    source.deadline = beyond ? kNever : addSaturating(source.deadline, span);
    return further + 1;
}

}  // namespace

TimerService* TimerService::theService = nullptr;

TimerService::TimerService() : timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (timer_ < 0 || !createdIoLoop().watch(timer_, EPOLLIN, this)) abort();
}

void createTimers() {
    TimerService::theService = new TimerService;
}

TimerService& TimerService::shared() {
    start();
    return *theService;
}

FreeSlot* TimerService::takeSlots(size_t most) noexcept {
    const std::lock_guard lock(mutex_);
    FreeSlot* slots = memory_.take(most);
    if (slots == nullptr || armed_.reserve(memory_.slots())) return slots;
    memory_.give(slots);
    return nullptr;
}

void TimerService::giveSlots(FreeSlot* slots) noexcept {
    const std::lock_guard lock(mutex_);
    memory_.give(slots);
}

void TimerService::setTimer(dispatch_source_s* source, uint64_t start, uint64_t interval) noexcept {
    const uint64_t deadline = start == DISPATCH_TIME_NOW ? timerNow() : start;
    if (!source->resumed.load(std::memory_order_acquire)) {
        source->set(deadline, interval);
        return;
    }
    const std::lock_guard lock(mutex_);
    armed_.remove(source);
    source->set(deadline, interval);
    armLocked(source);
}

void TimerService::resume(dispatch_source_s* source) noexcept {
    const std::lock_guard lock(mutex_);
    assert(!source->resumed.load(std::memory_order_relaxed) && "resumed twice");
    if (source->resumed.load(std::memory_order_relaxed)) return;
    source->resumed.store(true, std::memory_order_release);
    armLocked(source);
}

void TimerService::cancel(dispatch_source_s* source) noexcept {
    TimerSet::prefetch(source);         // on its way together with the source itself
    if (source->isCancelled()) return;  // and if not, the source has come from far memory before the lock is held
    const std::lock_guard lock(mutex_);
    if (!source->markCancelled()) return;
    armed_.remove(source);
}

void TimerService::armLocked(dispatch_source_s* source) noexcept {
    if (source->isCancelled() || !source->resumed.load(std::memory_order_relaxed)) return;
    source->order = nextOrder_++;
    if (source->deadline == kNever) return;
    armed_.insert(source);
    if (source->deadline < programmed_) programLocked(source->deadline);
}

void TimerService::programLocked(uint64_t deadline) noexcept {
    if (clockIsManual()) return;
    programmed_ = deadline;
    itimerspec setting{};  // all zero silences it; no deadline is 0
    if (deadline != kNever) {
        setting.it_value.tv_sec = static_cast<time_t>(deadline / 1'000'000'000);
        setting.it_value.tv_nsec = static_cast<long>(deadline % 1'000'000'000);
    }
    timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr);
}

void TimerService::ready(uint32_t) noexcept {
    if (!clockIsManual()) {
        fireDue();  // sets it anew, which makes it quiet
        return;
    }
    uint64_t count = 0;
    (void)!read(timer_, &count, sizeof(count));  // only to make it quiet
}

bool TimerService::fireDue() noexcept {
    const uint64_t now = timerNow();  // one for all batches: however short an interval, each source is taken once
    Due batch[kBatch];
    bool any = false;
    size_t count = 0;
    do {
        count = collectDue(now, batch);
        handOver(batch, count);
        any = any || count != 0;
    } while (count == kBatch);
    programForFirst();  // last, so that those who are due need not wait for it
    return any;
}

/// Those that follow one another on one queue are posted together.
void TimerService::handOver(const Due (&batch)[kBatch], size_t count) noexcept {
    JobList together;
    for (size_t i = 0; i < count; ++i) {
        dispatch_source_s* source = batch[i].source;
        if (!batch[i].post) {
            source->release();
            continue;
        }
        dispatch_queue_t queue = source->queue;
        together.push(source);
        if (i + 1 == count || !batch[i + 1].post || batch[i + 1].source->queue != queue) queue->postAll(together);
    }
}

size_t TimerService::collectDue(uint64_t now, Due (&batch)[kBatch]) noexcept {
    const std::lock_guard lock(mutex_);
    for (size_t count = 0; count < kBatch;) {
        dispatch_source_s* source = armed_.firstDue(now);
        if (source == nullptr) return count;
        armed_.remove(source);
        if (!takeFirst(source, now, batch[count])) continue;
        ++count;
        if (source->deadline != kNever) armed_.insert(source);
    }
    return kBatch;
}

/// False when the source's last reference is gone: whoever dropped it is waiting for the lock, to take it out itself.
bool TimerService::takeFirst(dispatch_source_s* source, uint64_t now, Due& due) noexcept {
    if (!source->retainIfAlive()) return false;
    due = {source, source->noteOccurrences(passOver(*source, now))};
    return true;
}

void TimerService::callEnded() noexcept {
    if (inFlight_.fetch_sub(1, std::memory_order_acq_rel) != 1 || !clockIsManual()) return;
    const std::lock_guard lock(idleMutex_);
    idle_.notify_all();
}

void TimerService::waitForCalls() noexcept {
    std::unique_lock lock(idleMutex_);
    while (inFlight_.load(std::memory_order_acquire) != 0) idle_.wait(lock);
}

void TimerService::programForFirst() noexcept {
    const std::lock_guard lock(mutex_);
    const dispatch_source_s* first = armed_.first();
    programLocked(first != nullptr ? first->deadline : kNever);
}

}  // namespace runtime
