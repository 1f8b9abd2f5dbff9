#include <platform_gate.h>

namespace {

thread_local PlatformGate::Pass* innermostPass = nullptr;

}  // namespace

PlatformGate::Pass::Pass(PlatformGate& gate) : gate_(nullptr), outer_(innermostPass) {
    {
        const std::lock_guard lock(gate.mutex_);
        if (!gate.closed_) {
            ++gate.inside_;
            gate_ = &gate;
        }
    }
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

void PlatformGate::leave() {
    const std::lock_guard lock(mutex_);
    --inside_;
    if (closed_) empty_.notify_all();  // under the lock: the closer may destroy the gate as soon as it has it
}

void PlatformGate::close() {
    unsigned own = 0;
    for (const Pass* pass = innermostPass; pass != nullptr; pass = pass->outer_) own += pass->gate_ == this ? 1 : 0;
    std::unique_lock lock(mutex_);
    closed_ = true;
    while (inside_ > own) empty_.wait(lock);
}
