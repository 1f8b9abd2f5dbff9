#include <platform_gate.h>

namespace {

thread_local PlatformGate::Pass* innermostPass = nullptr;

}  // namespace

PlatformGate::Pass::Pass(PlatformGate& gate) : gate_(gate.enter() ? &gate : nullptr), outer_(innermostPass) {
    innermostPass = this;
}

PlatformGate::Pass::~Pass() {
    innermostPass = outer_;
    if (gate_ != nullptr) gate_->leave();
}

void PlatformGate::Pass::abandonAllOfThisThread() {
    for (Pass* pass = innermostPass; pass != nullptr; pass = pass->outer_) {
        if (pass->gate_ != nullptr) pass->gate_->leave();
        pass->gate_ = nullptr;
    }
}

bool PlatformGate::enter() {
    unsigned visits = visits_.load(std::memory_order_relaxed);
    while ((visits & kClosed) == 0) {
        if (visits_.compare_exchange_weak(visits, visits + kOneInside, std::memory_order_acquire)) return true;
    }
    return false;
}

/// While the gate is open nobody waits, and the count is all there is to it. Later it goes down under the lock alone:
/// the closer, who looks at it there, may destroy the gate as soon as it has seen it.
void PlatformGate::leave() {
    unsigned visits = visits_.load(std::memory_order_relaxed);
    while ((visits & kClosed) == 0) {
        if (visits_.compare_exchange_weak(visits, visits - kOneInside, std::memory_order_release)) return;
    }
    const std::lock_guard lock(mutex_);
    visits_.fetch_sub(kOneInside, std::memory_order_relaxed);
    empty_.notify_all();
}

void PlatformGate::close() {
    unsigned own = 0;
    for (const Pass* pass = innermostPass; pass != nullptr; pass = pass->outer_) own += pass->gate_ == this ? 1 : 0;
    std::unique_lock lock(mutex_);
    visits_.fetch_or(kClosed, std::memory_order_acquire);
    while (visits_.load(std::memory_order_relaxed) / kOneInside > own) empty_.wait(lock);
}
