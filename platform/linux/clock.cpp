#include "platform/linux/clock.h"

#include <time.h>

#include <atomic>

namespace runtime {

namespace {

std::atomic<uint64_t> manualNow{0};

}  // namespace

uint64_t steadyNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t nanoseconds =
        static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
    return nanoseconds != 0 ? nanoseconds : 1;
}

uint64_t timerNow() noexcept {
    const uint64_t manual = manualNow.load(std::memory_order_relaxed);
    return manual != 0 ? manual : steadyNow();
}

void setManualNow(uint64_t now) noexcept {
    manualNow.store(now);
}

bool clockIsManual() noexcept {
    return manualNow.load(std::memory_order_relaxed) != 0;
}

uint64_t addSaturating(uint64_t moment, uint64_t span) noexcept {
    uint64_t sum = 0;
    if (__builtin_add_overflow(moment, span, &sum) || sum > kLastMoment) return kNever;
    return sum;
}

}  // namespace runtime

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
    if (when == DISPATCH_TIME_FOREVER) return when;
    const uint64_t base = when == DISPATCH_TIME_NOW ? runtime::timerNow() : when;
    if (delta >= 0) return runtime::addSaturating(base, static_cast<uint64_t>(delta));
    const uint64_t back = ~static_cast<uint64_t>(delta) + 1;
    return base > back ? base - back : 1;
}
