// What the pool of workers grows to. It belongs to the process, so each case has a process of its own.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <deque>
#include <latch>
#include <semaphore>

#include "platform/linux/runtime.h"
#include "platform/linux/worker_pool.h"
#include "tests/platform/dispatch_support.h"

namespace {

TEST(Pool, GrowsByOneWorkerForEachJobThatFindsNoneIdleUpToEight) {
    const auto [status, trace] =
        Child([] {
            runtime::WorkerPool& pool = runtime::WorkerPool::shared();
            std::counting_semaphore<16> go{0}, running{0};
            const auto block = [&] {
                running.release();
                go.acquire();
            };
            for (unsigned i = 1; i <= 9; ++i) {
                dispatch_async(&pool, block);
                if (i < 9) running.acquire();
                Child::leave(static_cast<char>('0' + pool.threadCount()));
            }
            Child::leave(running.try_acquire() ? '!' : '.');  // the ninth waits for one of the eight
            go.release(1);
            running.acquire();
            Child::leave(static_cast<char>('0' + pool.threadCount()));
            _exit(0);
        }).finish();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(trace, "123456788.8");
}

TEST(Pool, ACrowdOfJobsThatWaitForEachOtherGetsAllEightWorkers) {
    const auto [status, trace] = Child([] {
                                     std::latch eight(8);
                                     std::counting_semaphore<20> ran{0};
                                     std::deque<Step> crowd;
                                     runtime::JobList jobs;
                                     for (int i = 0; i < 20; ++i) {
                                         crowd.emplace_back([&, i] {
                                             if (i < 8) eight.arrive_and_wait();
                                             ran.release();
                                         });
                                         jobs.push(&crowd.back());
                                     }
                                     runtime::WorkerPool::shared().postAll(jobs);
                                     for (int i = 0; i < 20; ++i) ran.acquire();
                                     Child::leave(jobs.empty() ? '.' : '!');
                                     _exit(0);
                                 }).finish();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(trace, ".");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Pool, AJobOutlivesAShortageOfThreads) {
    const auto [status, trace] = Child([] {
                                     runtime::start();
                                     static std::binary_semaphore ran{0};
                                     static runtime::Job job([](runtime::Job*) { ran.release(); });
                                     rlimit limit{}, none{};
                                     getrlimit(RLIMIT_AS, &limit);
                                     none.rlim_cur = 1;  // no further mapping: pthread_create fails
                                     none.rlim_max = limit.rlim_max;
                                     setrlimit(RLIMIT_AS, &none);
                                     runtime::WorkerPool::shared().post(&job);
                                     Child::leave(static_cast<char>('0' + runtime::WorkerPool::shared().threadCount()));
                                     setrlimit(RLIMIT_AS, &limit);
                                     ran.acquire();
                                     Child::leave(static_cast<char>('0' + runtime::WorkerPool::shared().threadCount()));
                                     _exit(0);
                                 }).finish();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(trace, "01");
}
#endif

}  // namespace
