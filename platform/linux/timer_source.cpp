// A source's own steps, and the public functions over it.
#include "platform/linux/timer_source.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

#include "platform/linux/timer_service.h"

struct dispatch_source_type_s {};
const dispatch_source_type_s _dispatch_source_type_timer{};

using runtime::TimerService;

static_assert(sizeof(dispatch_source_s) + sizeof(runtime::TimerHeap::Slot) <= 200, "a million armed sources");

namespace {

/// Replaces the state by `step` of it; returns the state that was replaced.
template <typename Step>
uint32_t change(std::atomic<uint32_t>& state, Step step) noexcept {
    uint32_t old = state.load(std::memory_order_relaxed);
    while (!state.compare_exchange_weak(old, step(old), std::memory_order_acq_rel, std::memory_order_relaxed)) {
    }
    return old;
}

bool isCancelled(uint32_t state) {
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
    TimerService::shared().dismiss();
    queue->release();
}

bool dispatch_source_s::retainIfAlive() noexcept {
    uint32_t count = references.load(std::memory_order_relaxed);
    while (count != 0) {
        if (references.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
    }
    return false;
}

void dispatch_source_s::release() noexcept {
    if (references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if ((state.load(std::memory_order_relaxed) & kCancelled) == 0) TimerService::shared().disarm(this);
    delete this;
}

bool dispatch_source_s::noteOccurrences(uint64_t count) noexcept {
    occurrences.fetch_add(count, std::memory_order_relaxed);
    const auto mayQueue = [](uint32_t s) { return (s & kPhase) == kIdle && !isCancelled(s); };
    const uint32_t old =
        change(state, [&](uint32_t s) { return (mayQueue(s) ? withPhase(s, kQueued) : s) | kWaiting; });
    if (!mayQueue(old)) return false;
    TimerService::shared().callBegins();
    return true;
}

/// Queued to running, unless the source was cancelled meanwhile.
bool dispatch_source_s::beginCall() noexcept {
    const uint32_t old = change(
        state, [](uint32_t s) { return isCancelled(s) ? withPhase(s, kIdle) : withPhase(s, kRunning) & ~kWaiting; });
    return !isCancelled(old);
}

/// Running to idle, or to queued when something fell due meanwhile (true: post it again).
bool dispatch_source_s::endCall() noexcept {
    const auto again = [](uint32_t s) { return (s & kWaiting) != 0 && !isCancelled(s); };
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
    TimerService::shared().callEnded();
}

// ---- The public face

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t, unsigned long,
                                         dispatch_queue_t queue) {
    if (type != DISPATCH_SOURCE_TYPE_TIMER) return nullptr;
    if (queue == nullptr) queue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
    if (!TimerService::shared().admit()) return nullptr;
    auto* source = new (std::nothrow) dispatch_source_s(queue);
    if (source == nullptr) TimerService::shared().dismiss();
    return source;
}

void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t) {
    TimerService::shared().setTimer(source, start, interval);
}

void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler) {
    source->handler = std::move(handler);
}

unsigned long dispatch_source_get_data(dispatch_source_t source) {
    return source->data;
}

void dispatch_source_cancel(dispatch_source_t source) {
    const uint32_t old = source->state.fetch_or(dispatch_source_s::kCancelled, std::memory_order_acq_rel);
    if ((old & dispatch_source_s::kCancelled) == 0) TimerService::shared().disarm(source);
}

void dispatch_resume(dispatch_source_t source) {
    TimerService::shared().resume(source);
}

void dispatch_retain(dispatch_source_t source) {
    source->retain();
}

void dispatch_release(dispatch_source_t source) {
    source->release();
}
