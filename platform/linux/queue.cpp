// Serial queues over the pool or over the main queue.
#include "platform/linux/census.h"
#include "platform/linux/runtime.h"
#include "platform/linux/worker_pool.h"

namespace runtime {

namespace {

/// Jobs that a queue may run before it gives its thread back: enough to make the hand-back cheap, few enough that a
/// flooded connection holds up the others for some tens of microseconds only.
constexpr int kJobsPerTurn = 32;

/// The turns that the calling thread is in, innermost first (a queue may have another as its target). A queue that is
/// destroyed in its own last job leaves null here.
struct RunningTurn {
    explicit RunningTurn(const SerialQueue* running);
    ~RunningTurn();
    RunningTurn(const RunningTurn&) = delete;
    RunningTurn& operator=(const RunningTurn&) = delete;

    const SerialQueue* queue;
    RunningTurn* outer;
};

thread_local RunningTurn* innermostTurn = nullptr;

RunningTurn::RunningTurn(const SerialQueue* running) : queue(running), outer(innermostTurn) {
    innermostTurn = this;
}

RunningTurn::~RunningTurn() {
    innermostTurn = outer;
}

RunningTurn* turnOf(const SerialQueue* queue) {
    RunningTurn* turn = innermostTurn;
    while (turn != nullptr && turn->queue != queue) turn = turn->outer;
    return turn;
}

}  // namespace

SerialQueue::SerialQueue(dispatch_queue_t target)
    : target_(target != nullptr ? target : &WorkerPool::shared()), turn_(this) {}

SerialQueue::~SerialQueue() {
    if (RunningTurn* turn = turnOf(this)) {
        turn->queue = nullptr;
        return;
    }
    // The last job has ended, but the thread that ran it may still be on its way out. Once the ending has begun, the
    // threads that are left in a turn are parked there for good.
    std::unique_lock lock(mutex_);
    while (scheduled_ && !newJobsForbidden()) turnEnded_.wait(lock);
}

void SerialQueue::post(Job* job) noexcept {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push(job);
        if (scheduled_ || suspended_ != 0) return;
        scheduled_ = true;
    }
    target_->post(&turn_);
}

void SerialQueue::suspend() noexcept {
    const std::lock_guard lock(mutex_);
    ++suspended_;
}

void SerialQueue::resume() noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (suspended_ == 0) return;
        if (--suspended_ != 0 || scheduled_ || jobs_.empty()) return;
        scheduled_ = true;
    }
    target_->post(&turn_);
}

bool SerialQueue::isCurrent() const noexcept {
    return turnOf(this) != nullptr;
}

Job* SerialQueue::nextJob() noexcept {
    const std::lock_guard lock(mutex_);
    Job* job = suspended_ == 0 && !newJobsForbidden() ? jobs_.pop() : nullptr;
    if (job == nullptr) {
        scheduled_ = false;
        turnEnded_.notify_all();
    }
    return job;
}

void SerialQueue::takeTurn(Job* job) {
    SerialQueue& queue = *static_cast<Turn*>(job)->queue;
    const RunningTurn turn(&queue);
    for (int count = 0; count < kJobsPerTurn; ++count) {
        Job* next = queue.nextJob();
        if (next == nullptr) return;
        next->run(next);
        if (turn.queue == nullptr) return;
    }
    {
        // A turn that waits with nothing to do would hold up whoever destroys the queue, the io thread for one.
        const std::lock_guard lock(queue.mutex_);
        if (queue.jobs_.empty()) {
            queue.scheduled_ = false;
            queue.turnEnded_.notify_all();
            return;
        }
    }
    queue.target_->postLast(&queue.turn_);
}

}  // namespace runtime
