#include "platform/linux/thread.h"

#include <linux/futex.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace runtime {

namespace {

constexpr size_t kStackBytes = size_t{1} << 20;

void* enter(void* body) {
    reinterpret_cast<void (*)()>(body)();
    abort();  // a body never returns
}

sigset_t maskAtStart;

sigset_t maskFor(Signals signals) {
    if (signals == Signals::asAtStart) return maskAtStart;
    sigset_t mask;
    sigfillset(&mask);
    if (signals == Signals::faultsOnly) {
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) sigdelset(&mask, fault);
    }
    return mask;
}

void futex(std::atomic<uint32_t>* word, int operation, uint32_t value) {
    static_assert(sizeof(*word) == sizeof(uint32_t));
    syscall(SYS_futex, word, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
}

}  // namespace

void keepSignalMask() noexcept {
    pthread_sigmask(SIG_SETMASK, nullptr, &maskAtStart);
}

bool startThread(const char* name, void (*body)(), Signals signals) noexcept {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    const sigset_t mask = maskFor(signals);
    pthread_t thread;
    const bool started = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                         pthread_attr_setstacksize(&attributes, kStackBytes) == 0 &&
                         pthread_attr_setsigmask_np(&attributes, &mask) == 0 &&
                         pthread_create(&thread, &attributes, enter, reinterpret_cast<void*>(body)) == 0;
    pthread_attr_destroy(&attributes);
    if (started) pthread_setname_np(thread, name);
    return started;
}

void startVitalThread(const char* name, void (*body)(), Signals signals) noexcept {
    constexpr int kTries = 100;
    const timespec pause = {0, 10'000'000};
    for (int attempt = 0; attempt < kTries; ++attempt) {
        if (startThread(name, body, signals)) return;
        nanosleep(&pause, nullptr);
    }
    abort();
}

void parkForGood() noexcept {
    for (;;) pause();
}

void Parking::wait() noexcept {
    uint32_t seen = empty;
    if (state_.compare_exchange_strong(seen, asleep, std::memory_order_acquire)) {
        while (state_.load(std::memory_order_acquire) == asleep) futex(&state_, FUTEX_WAIT, asleep);
    }
    state_.store(empty, std::memory_order_relaxed);
}

void Parking::wake() noexcept {
    if (state_.exchange(token, std::memory_order_release) == asleep) futex(&state_, FUTEX_WAKE, 1);
}

}  // namespace runtime
