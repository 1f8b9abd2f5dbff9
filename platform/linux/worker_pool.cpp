#include "platform/linux/worker_pool.h"

#include "platform/linux/census.h"
#include "platform/linux/clock.h"

namespace runtime {

namespace {

/// Long enough not to press a system that has run out of threads, short enough not to be felt.
constexpr uint64_t kRetryAfter = 50'000'000;

}  // namespace

WorkerPool::WorkerPool() {
    start();
}

WorkerPool& WorkerPool::shared() {
    static WorkerPool* const pool = new WorkerPool;
    return *pool;
}

void WorkerPool::post(Job* job) noexcept {
    std::unique_lock lock(mutex_);
    if (Worker* worker = idle_) {
        idle_ = worker->nextIdle;
        lock.unlock();
        worker->handed = job;
        worker->bed.wake();
        return;
    }
    jobs_.push(job);
    ++waiting_;
    if (!needsThread()) return;
    ++starting_;
    ++threads_;
    lock.unlock();
    startWorker();
}

unsigned WorkerPool::threadCount() {
    const std::lock_guard lock(mutex_);
    return threads_;
}

void WorkerPool::startWorker() noexcept {
    if (startThread("worker", work, Signals::asAtStart)) return;
    {
        const std::lock_guard lock(mutex_);
        --starting_;
        --threads_;
        if (retrying_) return;
        retrying_ = true;
    }
    IoLoop::shared().post(&askForDelay_);
}

void WorkerPool::askForDelay(Job*) {
    IoLoop::shared().postAt(addSaturating(steadyNow(), kRetryAfter), &shared().retry_);
}

void WorkerPool::retry(Job*) {
    WorkerPool& pool = shared();
    {
        const std::lock_guard lock(pool.mutex_);
        pool.retrying_ = false;
        if (!pool.needsThread()) return;
        ++pool.starting_;
        ++pool.threads_;
    }
    pool.startWorker();
}

void WorkerPool::work() {
    WorkerPool& pool = shared();
    Worker self;
    {
        const std::lock_guard lock(pool.mutex_);
        --pool.starting_;
    }
    for (;;) {
        Job* job = pool.takeOrSleep(self);
        enterRunning();
        job->run(job);
        leaveRunning();
    }
}

Job* WorkerPool::takeOrSleep(Worker& self) noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (Job* job = jobs_.pop()) {
            --waiting_;
            return job;
        }
        self.nextIdle = idle_;
        idle_ = &self;
    }
    self.bed.wait();
    return self.handed;
}

}  // namespace runtime
