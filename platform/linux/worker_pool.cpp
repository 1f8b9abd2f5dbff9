#include "platform/linux/worker_pool.h"

#include <algorithm>
#include <utility>

#include "platform/linux/census.h"
#include "platform/linux/clock.h"

namespace runtime {

namespace {

/// Long enough not to press a system that has run out of threads, short enough not to be felt.
constexpr uint64_t kRetryAfter = 50'000'000;

/// How many workers begin with a crowd of jobs, which is more than there can be workers, and when it is looked at
/// again. Short jobs are those of which two workers do kShortJobs in that time: about 30 microseconds each, as much as
/// a worker's waking up may take.
constexpr unsigned kBeginners = 2;
constexpr uint64_t kLookAfter = 1'000'000;
constexpr unsigned kShortJobs = 64;

thread_local const void* thisWorker = nullptr;

}  // namespace

WorkerPool::WorkerPool() : lookout_(Lookout::ofWorkers()) {
    start();
}

WorkerPool& WorkerPool::shared() {
    static WorkerPool* const pool = new WorkerPool;
    return *pool;
}

void WorkerPool::post(Job* job) noexcept {
    Help help;
    {
        const std::lock_guard lock(mutex_);
        jobs_.push(job);
        ++waiting_;
        help = helpLocked(1);
    }
    bring(help);
}

/// The calling worker takes the first waiting job next, so nobody needs to be woken.
void WorkerPool::postLast(Job* job) noexcept {
    const std::lock_guard lock(mutex_);
    jobs_.push(job);
    ++waiting_;
}

void WorkerPool::postAll(JobList& jobs) noexcept {
    Help help;
    bool look = false;
    {
        const std::lock_guard lock(mutex_);
        while (Job* job = jobs.pop()) {
            jobs_.push(job);
            ++waiting_;
        }
        const unsigned busy = threads_ - resting_;
        const unsigned most = waiting_ <= kMostThreads ? kMostThreads : kBeginners - std::min(busy, kBeginners);
        help = helpLocked(most);
        look = crowded() && !looking_;
        if (look) {
            looking_ = true;
            taken_ = 0;
        }
    }
    bring(help);
    if (look) IoLoop::shared().post(&askForLook_);
}

void WorkerPool::askForLook(Job*) {
    IoLoop::shared().postAt(addSaturating(steadyNow(), kLookAfter), &shared().look_);
}

/// Few jobs since the last look means that they are long ones, or that somebody waits in each.
void WorkerPool::look(Job*) {
    WorkerPool& pool = shared();
    Help help;
    bool again = false;
    {
        const std::lock_guard lock(pool.mutex_);
        if (pool.taken_ < kShortJobs) help = pool.helpLocked(kMostThreads);
        pool.taken_ = 0;
        again = pool.looking_ = pool.crowded();
    }
    pool.bring(help);
    if (again) askForLook(nullptr);
}

/// Gives the worker on watch the first waiting job; false when there is no such worker, or it has one already.
bool WorkerPool::handToWatch() noexcept {
    if (waiting_ == 0 || onWatch_ == nullptr || onWatch_->handed != nullptr) return false;
    onWatch_->handed = takeLocked();
    --resting_;
    return true;
}

/// Hands waiting jobs, the first of them first, to the calling worker if it is on watch, to idle workers, those who
/// were busy last first, and to the one on watch, and starts threads for the rest, unless a start has just failed: for
/// `most` jobs in all.
WorkerPool::Help WorkerPool::helpLocked(unsigned most) noexcept {
    Help help;
    const bool isOwn = onWatch_ != nullptr && onWatch_ == thisWorker;
    if (most != 0 && isOwn && handToWatch()) --most;
    Worker** end = &help.woken;
    for (; most != 0 && idle_ != nullptr && waiting_ != 0; --most) {
        Worker* worker = idle_;
        idle_ = worker->nextIdle;
        --resting_;
        worker->handed = takeLocked();
        worker->nextIdle = nullptr;
        *end = worker;
        end = &worker->nextIdle;
    }
    if (most != 0 && handToWatch()) {
        help.ring = true;
        --most;
    }
    for (; most != 0 && needsThread() && !retrying_; --most, ++help.missing) {
        ++starting_;
        ++threads_;
    }
    return help;
}

void WorkerPool::bring(Help help) noexcept {
    while (Worker* worker = help.woken) {
        help.woken = worker->nextIdle;  // before it wakes and uses the link itself
        worker->bed.wake();
    }
    if (help.ring) lookout_->ring();
    while (help.missing-- != 0) startWorker();
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
    Help help;
    {
        const std::lock_guard lock(pool.mutex_);
        pool.retrying_ = false;
        help = pool.helpLocked(kMostThreads);
    }
    pool.bring(help);
}

void WorkerPool::work() {
    WorkerPool& pool = shared();
    Worker self;
    thisWorker = &self;
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

Job* WorkerPool::takeLocked() noexcept {
    --waiting_;
    ++taken_;
    return jobs_.pop();
}

Job* WorkerPool::takeOrSleep(Worker& self) noexcept {
    bool watch = false;
    {
        const std::lock_guard lock(mutex_);
        if (waiting_ != 0) return takeLocked();
        ++resting_;
        watch = onWatch_ == nullptr && lookout_ != nullptr && lookout_->isUseful();
        self.handed = nullptr;
        if (watch) {
            onWatch_ = &self;
        } else {
            self.nextIdle = std::exchange(idle_, &self);
        }
    }
    if (watch) return keepWatch(self);
    self.bed.wait();
    return self.handed;
}

/// Until there is a job: one that the watcher posted itself, or another's.
Job* WorkerPool::keepWatch(Worker& self) noexcept {
    lookout_->take();
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (handToWatch() || self.handed != nullptr) {
                lookout_->leave();
                onWatch_ = nullptr;
                return self.handed;
            }
        }
        lookout_->wait();
    }
}

}  // namespace runtime
