#include "platform/linux/census.h"

#include <time.h>

#include <atomic>

#include "platform/linux/clock.h"
#include "platform/linux/runtime.h"
#include "platform/linux/thread.h"

namespace runtime {

namespace {

std::atomic<unsigned> running{0};
std::atomic<bool> forbidden{false};
thread_local unsigned depth = 0;

}  // namespace

void enterRunning() noexcept {
    if (depth++ != 0) return;
    running.fetch_add(1);  // both sequentially consistent: see the header
    if (!forbidden.load()) return;
    giveUpRunning();
    parkForGood();
}

void leaveRunning() noexcept {
    if (depth != 0 && --depth == 0) running.fetch_sub(1);
}

void giveUpRunning() noexcept {
    if (depth == 0) return;
    depth = 0;
    running.fetch_sub(1);
}

void forbidNewJobs() noexcept {
    ++depth;  // this thread has entered without being counted, so entering again is free
    forbidden.store(true);
}

bool newJobsForbidden() noexcept {
    return forbidden.load();
}

bool waitForRunning(uint64_t nanoseconds) noexcept {
    // Looking once a millisecond keeps the leaving of a job free of any wake-up; it happens once in a process's life.
    const timespec pause = {0, 1'000'000};
    const uint64_t limit = steadyNow() + nanoseconds;
    while (running.load() != 0) {
        if (steadyNow() >= limit) return false;
        nanosleep(&pause, nullptr);
    }
    return true;
}

RunningScope::RunningScope() {
    enterRunning();
}

RunningScope::~RunningScope() {
    leaveRunning();
}

}  // namespace runtime
