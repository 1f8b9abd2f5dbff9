// What becomes of signals. Each case runs in a process of its own (a death test that starts this program again).
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include <dispatch/dispatch.h>

#include "debug/LSignals.h"

namespace {

constexpr int kFaultStatus = 154;  // what a parent sees of 666

/// The runtime is up, as it is in the helper while anything can happen.
void StartRuntime() {
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), [] {});
}

void Send(int signal) {
    kill(getpid(), signal);
}

[[noreturn]] void GoOn() {
    for (;;) pause();
}

/// Reads beyond the end of a file, or from a page that may not be read. Not optimised away, and not for the sanitizers
/// to find first.
void Raise(int signal) {
    if (signal == SIGILL) __builtin_trap();
    const int file = signal == SIGBUS ? memfd_create("empty", MFD_CLOEXEC) : -1;
    const int flags = signal == SIGBUS ? MAP_SHARED : MAP_PRIVATE | MAP_ANONYMOUS;
    const int access = signal == SIGBUS ? PROT_READ : PROT_NONE;
    volatile const char* const page = static_cast<char*>(mmap(nullptr, 1, access, flags, file, 0));
    (void)*page;
}

TEST(SignalsDeathTest, EndTheProcessOrDoNot) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr int kGoesOn = 3;
    struct Row {
        std::vector<int> sent;  // one after the other
        int raised;             // then, by an instruction; 0: none
        int status;             // or minus the signal that ends it; kGoesOn: it lives
    };
    const Row rows[] = {{{SIGTERM}, 0, 0},
                        {{SIGINT}, 0, 0},
                        {{SIGSEGV}, 0, kFaultStatus},
                        {{SIGBUS}, 0, kFaultStatus},
                        {{SIGFPE}, 0, kFaultStatus},
                        {{}, SIGSEGV, kFaultStatus},
                        {{}, SIGBUS, kFaultStatus},
                        {{}, SIGILL, -SIGILL},
                        {{SIGQUIT, SIGQUIT, SIGILL}, 0, kGoesOn},
                        {{SIGILL, SIGSEGV, SIGBUS, SIGFPE}, 0, kGoesOn},
                        {{SIGQUIT, SIGSEGV, SIGTERM}, 0, 0},
                        {{SIGQUIT}, SIGSEGV, -SIGSEGV},
                        {{SIGQUIT, SIGSEGV}, SIGSEGV, -SIGSEGV},
                        {{SIGSEGV, SIGTERM}, 0, kFaultStatus}};
    for (const Row& row : rows) {
        const auto deed = [&row] {
            StartRuntime();
            for (const int signal : row.sent) Send(signal);
            if (row.raised != 0) Raise(row.raised);
            if (row.status == kGoesOn) _exit(kGoesOn);
            GoOn();
        };
        const std::string what = testing::PrintToString(row.sent) + " " + std::to_string(row.raised);
        if (row.status < 0) {
            EXPECT_EXIT(deed(), testing::KilledBySignal(-row.status), "") << what;
        } else {
            EXPECT_EXIT(deed(), testing::ExitedWithCode(row.status), "") << what;
        }
    }
    EXPECT_EXIT((Send(SIGTERM), GoOn()), testing::ExitedWithCode(0), "") << "before the runtime is up";
}

TEST(Signals, AWriteToNobodyIsAnError) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
}

TEST(Signals, HandlersBlockEverythingAndAskForNothingElse) {
    for (const int signal : {SIGQUIT, SIGILL, SIGFPE, SIGSEGV, SIGBUS, SIGINT, SIGTERM}) {
        struct sigaction action {};
        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        const bool ends = signal == SIGINT || signal == SIGTERM;
        EXPECT_EQ(action.sa_sigaction, ends ? LIntTermSignalHandler : LDebugSignalHandler) << signal;
        EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_RESTART | SA_RESETHAND | SA_NODEFER | SA_ONSTACK), SA_SIGINFO);
        EXPECT_EQ(sigismember(&action.sa_mask, SIGUSR1), 1) << signal;
        EXPECT_EQ(sigismember(&action.sa_mask, SIGTERM), 1) << signal;
    }
}

}  // namespace
