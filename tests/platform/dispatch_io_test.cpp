// The io thread: its delays, and what forgetting a watcher guarantees.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <semaphore>
#include <string>

#include "platform/linux/clock.h"
#include "platform/linux/runtime.h"
#include "tests/platform/dispatch_support.h"

using runtime::IoLoop;

namespace {

struct Watcher final : runtime::IoWatcher {
    explicit Watcher(dispatch_block_t function) : work(std::move(function)) {}
    void ready(uint32_t) noexcept override { work(); }
    dispatch_block_t work;
    int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
};

void onIoThread(const dispatch_block_t& work) {
    std::binary_semaphore done{0};
    Step step([&] {
        work();
        done.release();
    });
    IoLoop::shared().post(&step);
    done.acquire();
}

TEST(IoLoop, DelayedJobsRunByDeadlineAndNotEarly) {
    IoLoop& loop = IoLoop::shared();
    std::string ran;
    std::counting_semaphore<2> done{0};
    uint64_t deadline = 0, at = 0;
    Step later([&] {
        ran += 'b';
        at = runtime::steadyNow();
        done.release();
    });
    Step sooner([&] {
        ran += 'a';
        done.release();
    });
    onIoThread([&] {
        deadline = runtime::steadyNow() + 20'000'000;
        loop.postAt(deadline, &later);
        loop.postAt(1, &sooner);
    });
    done.acquire();
    done.acquire();
    EXPECT_EQ(ran, "ab");
    EXPECT_GE(at, deadline);
}

TEST(IoLoop, AForgottenWatcherIsNotCalledForEventsAlreadyFetched) {
    IoLoop& loop = IoLoop::shared();
    for (int trial = 0; trial < 200; ++trial) {
        std::atomic<int> calls{0};
        Watcher* other[2] = {};
        Watcher one([&] {
            ++calls;
            loop.forget(other[0]->fd, other[0]);
            loop.forget(other[1]->fd, other[1]);
        });
        Watcher two([&] { one.work(); });  // whichever comes first forgets both
        other[0] = &one;
        other[1] = &two;
        onIoThread([&] {
            for (Watcher* watcher : other) {
                ASSERT_TRUE(loop.watch(watcher->fd, EPOLLIN, watcher));
                eventfd_write(watcher->fd, 1);
            }
        });
        waitUntil([&] { return calls.load() != 0; });
        onIoThread([] {});
        EXPECT_EQ(calls.load(), 1);
        for (Watcher* watcher : other) close(watcher->fd);
    }
}

}  // namespace
