// How the process ends. Each case is a child of its own; its trace says which steps were taken:
//   f stop_firings   d flush of the defaults   s destroy_server   x an exit handler, as statics run theirs
#include <gtest/gtest.h>
#include <platform_ending.h>
#include <platform_gate.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <latch>
#include <semaphore>
#include <string>
#include <vector>

#include "platform/linux/ending.h"
#include "platform/linux/runtime.h"
#include "tests/platform/dispatch_support.h"

#if defined(__SANITIZE_THREAD__)
// The sanitizer's own second of waiting at exit would be measured against the ending's deadline.
extern "C" const char* __tsan_default_options() {
    return "atexit_sleep_ms=0";
}
#endif

namespace {

dispatch_queue_t workers() {
    return dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
}

[[noreturn]] void hang() {
    for (;;) pause();
}

void observeExit() {
    std::atexit([] { Child::leave('x'); });
}

/// A child's usual beginning: everything that the ending may do leaves its mark.
void setUp(void (*destroyServer)() = [] { Child::leave('s'); }) {
    observeExit();
    runtime::start();
    platform_set_ending_steps({[] { Child::leave('f'); }, destroyServer});
    runtime::setFlushAtEnding([] {
        Child::leave('d');
        return false;  // a flush that fails stops nothing
    });
}

void onSignal(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(number, &action, nullptr);
}

struct Case {
    const char* name;
    void (*body)();
    int status;
    const char* trace;
};

const Case kCases[] = {
    {"before the runtime is up",
     [] {
         observeExit();
         platform_exit(3);
     },
     3, "x"},
    {"as from a signal, before the runtime is up",
     [] {
         observeExit();
         platform_exit_from_signal(4);
     },
     4, "x"},
    {"on the first thread",
     [] {
         setUp();
         platform_exit(666);
     },
     154, "fdsx"},
    {"in a job on the main queue",
     [] {
         setUp();
         dispatch_async(dispatch_get_main_queue(), [] { platform_exit(5); });
         const runtime::RunningScope launching;
         dispatch_main();
     },
     5, "fdsx"},
    {"in a job, inside gates that the steps close",
     [] {
         static PlatformGate gate;
         static dispatch_queue_t queue = dispatch_queue_create(nullptr, nullptr);
         setUp();
         platform_set_ending_steps({[] {
                                        gate.close();
                                        Child::leave('f');
                                    },
                                    [] {
                                        dispatch_release(queue);
                                        Child::leave('s');
                                    }});
         dispatch_async(queue, [] {
             const PlatformGate::Pass outer(gate), inner(gate);
             const runtime::RunningScope nested;
             platform_exit(6);
         });
         hang();
     },
     6, "fdsx"},
    {"the first status counts",
     [] {
         setUp();
         errno = 77;
         platform_exit_from_signal(7);
         if (errno != 77) Child::leave('!');
         platform_exit(8);
     },
     7, "fdsx"},
    {"asked again by a step",
     [] {
         setUp([] { platform_exit(99); });
         platform_exit(8);
     },
     8, "fd"},
    {"asked again by a static's destructor",
     [] {
         std::atexit([] { platform_exit(99); });
         setUp();
         platform_exit(9);
     },
     9, "fdsx"},
    {"no job starts any more",
     [] {
         setUp([] {
             const runtime::RunningScope ownWork;  // the ending's own thread is exempt
             dispatch_async(workers(), [] { Child::leave('!'); });
             std::this_thread::sleep_for(std::chrono::milliseconds(50));  // time for a job that must not come
             Child::leave('s');
         });
         platform_exit(10);
     },
     10, "fdsx"},
    {"the running job is waited for",
     [] {
         setUp();
         static std::binary_semaphore entered{0}, asked{0};
         dispatch_async(workers(), [] {
             entered.release();
             asked.acquire();
             std::this_thread::sleep_for(std::chrono::milliseconds(50));  // well inside what a job may take
             Child::leave('j');
         });
         entered.acquire();
         platform_exit_from_signal(11);
         asked.release();
         hang();
     },
     11, "jfdsx"},
    {"a job that never ends",
     [] {
         setUp();
         static std::binary_semaphore entered{0};
         dispatch_async(workers(), [] {
             entered.release();
             hang();
         });
         entered.acquire();
         platform_exit(12);
     },
     12, ""},
    {"launching that never ends",
     [] {
         setUp();
         const runtime::RunningScope launching;
         platform_exit_from_signal(13);
         hang();
     },
     13, ""},
    {"a step that never ends",
     [] {
         setUp(hang);
         platform_exit(14);
     },
     14, "fd"},
    {"a static's destructor that never ends",
     [] {
         std::atexit(hang);
         setUp();
         platform_exit(15);
     },
     15, "fdsx"},
    {"a fault in a job",
     [] {
         setUp();
         onSignal(SIGFPE, [](int) { platform_exit_from_fault(666); });
         dispatch_async(workers(), [] { raise(SIGFPE); });
         hang();
     },
     154, ""},
};

TEST(Ending, TakesItsStepsAndKeepsTheStatus) {
    for (const Case& row : kCases) {
        SCOPED_TRACE(row.name);
        const auto [status, trace] = Child(row.body).finish();
        EXPECT_EQ(status, row.status);
        EXPECT_EQ(trace, row.trace);
    }
}

TEST(Ending, TwoAskersAtOnceEndItOnce) {
    for (int trial = 0; trial < 20; ++trial) {
        const auto [status, trace] = Child([] {
                                         setUp();
                                         static std::latch both(2);
                                         for (int answer : {21, 22}) {
                                             dispatch_async(workers(), [answer] {
                                                 both.arrive_and_wait();
                                                 platform_exit(answer);
                                             });
                                         }
                                         hang();
                                     }).finish();
        ASSERT_TRUE(status == 21 || status == 22) << status;
        ASSERT_EQ(trace, "fdsx");
    }
}

std::atomic<bool> stopAllocating{false};

void allocateUntilAsked() {
    std::vector<std::string> kept(64);
    for (size_t i = 0; !stopAllocating.load(std::memory_order_relaxed); ++i) kept[i % 64].assign(i * 37 % 4096, 'x');
}

TEST(Ending, ASignalToAProcessDeepInTheAllocatorEndsIt) {
    for (int trial = 0; trial < 50; ++trial) {
        Child child([] {
            setUp();
            onSignal(SIGTERM, [](int) {
                stopAllocating.store(true);
                platform_exit_from_signal(0);
            });
            dispatch_async(workers(), allocateUntilAsked);
            dispatch_async(dispatch_get_main_queue(), [] {
                Child::leave('r');
                allocateUntilAsked();
            });
            dispatch_main();
        });
        ASSERT_EQ(child.next(), 'r');
        std::this_thread::sleep_for(std::chrono::microseconds(trial * 20));  // somewhere in the loop
        kill(child.pid, SIGTERM);
        const auto [status, trace] = child.finish();
        ASSERT_EQ(status, 0);
        ASSERT_EQ(trace, "fdsx");
    }
}

}  // namespace
