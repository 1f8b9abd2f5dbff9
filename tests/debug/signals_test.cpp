// What becomes of signals. Each case runs in a process of its own (a death test that starts this program again).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>

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
    struct Row {
        const char* what;
        std::function<void()> deed;
        bool bySignal;
        int status;  // or the signal
    };
    const Row rows[] = {
        {"SIGTERM",
         [] {
             Send(SIGTERM);
             GoOn();
         },
         false, 0},
        {"SIGINT",
         [] {
             Send(SIGINT);
             GoOn();
         },
         false, 0},
        {"SIGSEGV sent",
         [] {
             Send(SIGSEGV);
             GoOn();
         },
         false, kFaultStatus},
        {"SIGBUS sent",
         [] {
             Send(SIGBUS);
             GoOn();
         },
         false, kFaultStatus},
        {"SIGFPE sent",
         [] {
             Send(SIGFPE);
             GoOn();
         },
         false, kFaultStatus},
        {"SIGSEGV raised",
         [] {
             Raise(SIGSEGV);
             _exit(1);
         },
         false, kFaultStatus},
        {"SIGBUS raised",
         [] {
             Raise(SIGBUS);
             _exit(1);
         },
         false, kFaultStatus},
        {"SIGILL raised",
         [] {
             Raise(SIGILL);
             _exit(1);
         },
         true, SIGILL},
        {"SIGQUIT is absorbed",
         [] {
             Send(SIGQUIT);
             Send(SIGQUIT);
             _exit(3);
         },
         false, 3},
        {"SIGILL sent is absorbed",
         [] {
             Send(SIGILL);
             _exit(3);
         },
         false, 3},
        {"after SIGQUIT, SIGSEGV sent does nothing",
         [] {
             Send(SIGQUIT);
             Send(SIGSEGV);
             _exit(3);
         },
         false, 3},
        {"nor does it change what follows",
         [] {
             Send(SIGQUIT);
             Send(SIGSEGV);
             Send(SIGBUS);
             Send(SIGTERM);
             GoOn();
         },
         false, 0},
        {"after SIGQUIT, SIGSEGV raised ends by itself",
         [] {
             Send(SIGQUIT);
             Raise(SIGSEGV);
             _exit(1);
         },
         true, SIGSEGV},
        {"the first status counts",
         [] {
             Send(SIGSEGV);
             Send(SIGTERM);
             GoOn();
         },
         false, kFaultStatus},
        {"SIGPIPE",
         [] {
             int ends[2];
             if (pipe(ends) != 0) _exit(1);
             close(ends[0]);
             _exit(write(ends[1], "x", 1) < 0 && errno == EPIPE ? 3 : 1);
         },
         false, 3},
    };
    for (const Row& row : rows) {
        const auto deed = [&row] {
            StartRuntime();
            row.deed();
        };
        if (row.bySignal) {
            EXPECT_EXIT(deed(), testing::KilledBySignal(row.status), "") << row.what;
        } else {
            EXPECT_EXIT(deed(), testing::ExitedWithCode(row.status), "") << row.what;
        }
    }
    EXPECT_EXIT((Send(SIGTERM), GoOn()), testing::ExitedWithCode(0), "") << "before the runtime is up";
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
