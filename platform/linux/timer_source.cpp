// A source's own steps, and the public functions over it.
#include "platform/linux/timer_source.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

#include "platform/linux/clock.h"
#include "platform/linux/timer_service.h"

struct dispatch_source_type_s {};
const dispatch_source_type_s _dispatch_source_type_timer{};

using runtime::TimerService;

static_assert(sizeof(dispatch_source_s) <= runtime::SourceBlock::kSlotBytes);
static_assert(runtime::SourceBlock::kSlotBytes % alignof(dispatch_source_s) == 0);
static_assert(runtime::TimerSet::kBytesPerSource <= 200, "a million armed sources");

namespace {

/// Replaces the state by `step` of it; returns the state that was replaced.
template <typename Step>
uint32_t change(std::atomic<uint32_t>& state, Step step) noexcept {
    uint32_t old = state.load(std::memory_order_relaxed);
    while (!state.compare_exchange_weak(old, step(old), std::memory_order_acq_rel, std::memory_order_relaxed)) {
    }
    return old;
}

bool hasCancelled(uint32_t state) {
    return (state & dispatch_source_s::kCancelled) != 0;
}

uint32_t withPhase(uint32_t state, uint32_t phase) {
    return (state & ~dispatch_source_s::kPhase) | phase;
}

}  // namespace

dispatch_source_s::dispatch_source_s(dispatch_queue_t target) : Job(fire), queue(target) {
    queue->retain();
}

dispatch_source_s::~dispatch_source_s() {
    queue->release();
}

dispatch_source_s* dispatch_source_s::create(dispatch_queue_t target) noexcept {
    void* slot = runtime::SpareSlots::take();
    return slot != nullptr ? new (slot) dispatch_source_s(target) : nullptr;
}

bool dispatch_source_s::retainIfAlive() noexcept {
    uint32_t count = references.load(std::memory_order_relaxed);
    while (count != 0) {
        if (references.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
    }
    return false;
}

void dispatch_source_s::release() noexcept {
    // Out of the set, and with no reference but the caller's: nobody can come by another one, nothing is left to agree.
    const bool alone = isCancelled() && references.load(std::memory_order_acquire) == 1;
    if (!alone && references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (!alone) TimerService::running().cancel(this);
    destroy();
}

void dispatch_source_s::destroy() noexcept {
    void* slot = this;
    this->~dispatch_source_s();
    runtime::SpareSlots::give(slot);
}

/// A running or queued call changes the state without the lock; an idle source leaves that phase under it only.
bool dispatch_source_s::markCancelled() noexcept {
    const uint32_t old = state.load(std::memory_order_relaxed);
    if (hasCancelled(old)) return false;
    if ((old & kPhase) == kIdle) {
        state.store(old | kCancelled, std::memory_order_release);
    } else {
        state.fetch_or(kCancelled, std::memory_order_acq_rel);
    }
    return true;
}

void dispatch_source_s::set(uint64_t start, uint64_t every) noexcept {
    deadline = start;
    interval = every == 0 ? runtime::kNever : every;
    occurrences.store(0, std::memory_order_relaxed);
}

bool dispatch_source_s::noteOccurrences(uint64_t count) noexcept {
    occurrences.fetch_add(count, std::memory_order_relaxed);
    const auto mayQueue = [](uint32_t s) { return (s & kPhase) == kIdle && !hasCancelled(s); };
    const uint32_t old =
        change(state, [&](uint32_t s) { return (mayQueue(s) ? withPhase(s, kQueued) : s) | kWaiting; });
    if (!mayQueue(old)) return false;
    TimerService::running().callBegins();
    return true;
}

/// Queued to running, unless the source was cancelled meanwhile.
bool dispatch_source_s::beginCall() noexcept {
    const uint32_t old = change(
        state, [](uint32_t s) { return hasCancelled(s) ? withPhase(s, kIdle) : withPhase(s, kRunning) & ~kWaiting; });
    return !hasCancelled(old);
}

/// Running to idle, or to queued when something fell due meanwhile (true: post it again).
bool dispatch_source_s::endCall() noexcept {
    const auto again = [](uint32_t s) { return (s & kWaiting) != 0 && !hasCancelled(s); };
    const uint32_t old = change(state, [&](uint32_t s) { return withPhase(s, again(s) ? kQueued : kIdle); });
    return again(old);
}

void dispatch_source_s::callHandler() noexcept {
    const uint64_t count = occurrences.exchange(0, std::memory_order_acquire);
    if (count == 0) return;  // the timer was set anew, or the call before this one took them along
    data = static_cast<unsigned long>(std::min<uint64_t>(count, ULONG_MAX));
    if (handler) runtime::runGuarded(handler);
}

void dispatch_source_s::fire(Job* job) {
    auto* source = static_cast<dispatch_source_s*>(job);
    if (source->beginCall()) {
        source->callHandler();
        if (source->endCall()) {
            source->queue->post(source);
            return;
        }
    }
    source->release();
    TimerService::running().callEnded();
}

// ---- The public face

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t, unsigned long,
                                         dispatch_queue_t queue) {
    if (type != DISPATCH_SOURCE_TYPE_TIMER) return nullptr;
    if (queue == nullptr) queue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
    return dispatch_source_s::create(queue);
}

void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t) {
    TimerService::running().setTimer(source, start, interval);
}

void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler) {
    source->handler.swap(handler);
}

unsigned long dispatch_source_get_data(dispatch_source_t source) {
    return source->data;
}

void dispatch_source_cancel(dispatch_source_t source) {
    TimerService::running().cancel(source);
}

void dispatch_resume(dispatch_source_t source) {
    TimerService::running().resume(source);
}

void dispatch_retain(dispatch_source_t source) {
    source->retain();
}

void dispatch_release(dispatch_source_t source) {
    source->release();
}
