// The two clocks of the runtime, both in nanoseconds.
#pragma once

#include <cstdint>

#include <dispatch/dispatch.h>

namespace runtime {

/// CLOCK_MONOTONIC: stands still while the machine sleeps, never set back. Never 0.
uint64_t steadyNow() noexcept;

/// What timer sources and dispatch_time go by: the steady clock, or the manual one while a test holds it.
uint64_t timerNow() noexcept;

/// The manual clock's reading; 0 gives timers back to the steady clock.
void setManualNow(uint64_t now) noexcept;
[[nodiscard]] bool clockIsManual() noexcept;

/// Later than every moment: sums that pass it stay at it.
constexpr uint64_t kNever = DISPATCH_TIME_FOREVER;

/// The last moment that timers tell from "never" (292 years after the machine's start).
constexpr uint64_t kLastMoment = ~uint64_t{0} >> 1;

/// `moment` + `span`; kNever when the sum lies beyond kLastMoment.
uint64_t addSaturating(uint64_t moment, uint64_t span) noexcept;

}  // namespace runtime
