#include "platform/linux/ending.h"

#include <platform_ending.h>
#include <platform_gate.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "platform/linux/census.h"
#include "platform/linux/clock.h"
#include "platform/linux/io_thread.h"
#include "platform/linux/runtime.h"
#include "platform/linux/thread.h"

namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kDeadline = 2'000 * kMillisecond;
constexpr uint64_t kJobsMayTake = 1'000 * kMillisecond;

/// How much longer than the deadline a thread that cannot go on waits for the io thread to end the process.
constexpr uint64_t kFaultMargin = 500 * kMillisecond;

constexpr int kNobodyAsked = INT_MIN;

std::atomic<int> askedStatus{kNobodyAsked};
std::atomic<int> exitDescriptor{-1};  // -1 until the runtime is up
std::atomic<bool (*)()> flushStep{nullptr};
std::atomic<void (*)()> stopFiringsStep{nullptr};
std::atomic<void (*)()> destroyServerStep{nullptr};
sem_t endingBegun;
thread_local bool onEndingThread = false;

static_assert(std::atomic<int>::is_always_lock_free, "asked from signal handlers");

bool runtimeIsUp() noexcept {
    return exitDescriptor.load() >= 0;
}

/// Async-signal-safe. A process shows its parent eight bits of the status, so the value that stands for "nobody" loses
/// nothing by becoming 0.
void ask(int status) noexcept {
    int nobody = kNobodyAsked;
    askedStatus.compare_exchange_strong(nobody, status == kNobodyAsked ? 0 : status);
    const uint64_t one = 1;
    (void)!write(exitDescriptor.load(), &one, sizeof(one));
}

void sleepFor(uint64_t nanoseconds) noexcept {
    const uint64_t until = runtime::addSaturating(runtime::steadyNow(), nanoseconds);
    timespec moment{};
    moment.tv_sec = static_cast<time_t>(until / 1'000'000'000);
    moment.tv_nsec = static_cast<long>(until % 1'000'000'000);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &moment, nullptr) == EINTR) {
    }
}

struct ExitWatcher final : runtime::IoWatcher {
    void ready(uint32_t) noexcept override {
        sem_post(&endingBegun);
        sleepFor(kDeadline);
        _exit(askedStatus.load());
    }
};

void runStep(const std::atomic<void (*)()>& step) noexcept {
    if (auto* function = step.load()) runtime::runGuarded(function);
}

[[noreturn]] void endTheProcess() {
    onEndingThread = true;
    while (sem_wait(&endingBegun) != 0) {
    }
    const int status = askedStatus.load();
    runtime::forbidNewJobs();
    if (!runtime::waitForRunning(kJobsMayTake)) _exit(status);
    runStep(stopFiringsStep);
    if (auto* flush = flushStep.load()) runtime::runGuarded([flush] { (void)flush(); });
    runStep(destroyServerStep);
    exit(status);
}

}  // namespace

void runtime::setFlushAtEnding(bool (*flush)()) noexcept {
    flushStep.store(flush);
}

void runtime::startEnding() {
    static ExitWatcher* const watcher = new ExitWatcher;
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0 || sem_init(&endingBegun, 0, 0) != 0) abort();
    if (!createdIoLoop().watch(descriptor, EPOLLIN, watcher)) abort();
    startVitalThread("ending", endTheProcess, Signals::none);
    exitDescriptor.store(descriptor);
}

void platform_set_ending_steps(const platform_ending_steps& steps) {
    stopFiringsStep.store(steps.stop_firings);
    destroyServerStep.store(steps.destroy_server);
}

void platform_exit(int status) {
    if (!runtimeIsUp()) exit(status);
    ask(status);
    if (onEndingThread) _exit(askedStatus.load());
    PlatformGate::Pass::abandonAllOfThisThread();
    runtime::giveUpRunning();
    runtime::parkForGood();
}

void platform_exit_from_signal(int status) noexcept {
    if (!runtimeIsUp()) exit(status);
    const int kept = errno;
    ask(status);
    errno = kept;
}

void platform_exit_from_fault(int status) noexcept {
    if (!runtimeIsUp()) exit(status);
    ask(status);
    sleepFor(kDeadline + kFaultMargin);
    _exit(askedStatus.load());
}
