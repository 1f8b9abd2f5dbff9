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

TimerService* theService = nullptr;

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

TimerService::TimerService() : timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (timer_ < 0 || !createdIoLoop().watch(timer_, EPOLLIN, this)) abort();
}

void createTimers() {
    theService = new TimerService;
}

TimerService& TimerService::shared() {
    start();
    return *theService;
}

bool TimerService::admit() noexcept {
    const size_t count = sources_.fetch_add(1, std::memory_order_relaxed) + 1;
    if (count <= room_.load(std::memory_order_relaxed)) return true;
    const std::lock_guard lock(mutex_);
    if (!heap_.reserve(count)) {
        dismiss();
        return false;
    }
    room_.store(heap_.capacity(), std::memory_order_relaxed);
    return true;
}

void TimerService::setTimer(dispatch_source_s* source, uint64_t start, uint64_t interval) noexcept {
    const std::lock_guard lock(mutex_);
    heap_.remove(source);
    source->deadline = start == DISPATCH_TIME_NOW ? timerNow() : start;
    source->interval = interval == 0 ? kNever : interval;
    source->occurrences.store(0, std::memory_order_relaxed);
    armLocked(source);
}

void TimerService::resume(dispatch_source_s* source) noexcept {
    const std::lock_guard lock(mutex_);
    assert(!source->resumed && "resumed twice");
    if (source->resumed) return;
    source->resumed = true;
    armLocked(source);
}

void TimerService::disarm(dispatch_source_s* source) noexcept {
    const std::lock_guard lock(mutex_);
    heap_.remove(source);
}

void TimerService::armLocked(dispatch_source_s* source) noexcept {
    const bool cancelled = (source->state.load(std::memory_order_relaxed) & dispatch_source_s::kCancelled) != 0;
    if (cancelled || !source->resumed) return;
    source->order = nextOrder_++;
    insertLocked(source);
}

void TimerService::insertLocked(dispatch_source_s* source) noexcept {
    if (source->deadline == kNever) return;
    heap_.insert({source->deadline, source->order, source});
    if (source->deadline < programmed_) programLocked(source->deadline);
}

void TimerService::programLocked(uint64_t deadline) noexcept {
    if (clockIsManual()) return;
    programmed_ = deadline;
    if (deadline == kNever) return;  // an expired timerfd is silent by itself
    itimerspec setting{};            // all zero would silence it, but no deadline is 0
    setting.it_value.tv_sec = static_cast<time_t>(deadline / 1'000'000'000);
    setting.it_value.tv_nsec = static_cast<long>(deadline % 1'000'000'000);
    timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr);
}

void TimerService::ready(uint32_t) noexcept {
    uint64_t count = 0;
    (void)!read(timer_, &count, sizeof(count));  // only to make it quiet
    if (!clockIsManual()) fireDue();
}

bool TimerService::fireDue() noexcept {
    const uint64_t now = timerNow();  // one for all batches: however short an interval, each source is taken once
    Due batch[kBatch];
    bool any = false;
    size_t count = 0;
    do {
        count = collectDue(now, batch);
        for (size_t i = 0; i < count; ++i) {
            if (batch[i].post) {
                batch[i].source->queue->post(batch[i].source);
            } else {
                batch[i].source->release();
            }
        }
        any = any || count != 0;
    } while (count == kBatch);
    return any;
}

size_t TimerService::collectDue(uint64_t now, Due (&batch)[kBatch]) noexcept {
    const std::lock_guard lock(mutex_);
    size_t count = 0;
    const TimerHeap::Slot* first = heap_.first();
    while (count < kBatch && first != nullptr && first->deadline <= now) {
        dispatch_source_s* source = first->source;
        heap_.remove(source);
        if (takeFirst(source, now, batch[count])) {
            ++count;
            if (source->deadline != kNever) heap_.insert({source->deadline, source->order, source});
        }
        first = heap_.first();
    }
    if (count < kBatch) programLocked(first != nullptr ? first->deadline : kNever);
    return count;
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

void TimerService::clockChanged() noexcept {
    const std::lock_guard lock(mutex_);
    const TimerHeap::Slot* first = heap_.first();
    programLocked(first != nullptr ? first->deadline : kNever);
}

}  // namespace runtime
