#include <platform_testing.h>

#include "platform/linux/clock.h"
#include "platform/linux/timer_service.h"

namespace platform_testing {

ManualClock::ManualClock() {
    runtime::setManualNow(runtime::steadyNow());
}

ManualClock::~ManualClock() {
    runtime::setManualNow(0);
    runtime::TimerService::shared().programForFirst();
}

void ManualClock::advance(uint64_t nanoseconds) {
    runtime::TimerService& timers = runtime::TimerService::shared();
    const uint64_t moved = runtime::addSaturating(runtime::timerNow(), nanoseconds);
    runtime::setManualNow(moved < runtime::kLastMoment ? moved : runtime::kLastMoment);
    while (timers.fireDue()) timers.waitForCalls();
}

}  // namespace platform_testing
