#include "platform/linux/main_queue.h"

#include "platform/linux/census.h"

namespace runtime {

MainQueue::MainQueue() {
    start();
}

MainQueue& MainQueue::shared() {
    static MainQueue* const queue = new MainQueue;
    return *queue;
}

void MainQueue::post(Job* job) noexcept {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push(job);
        if (!asleep_) return;
        asleep_ = false;
    }
    bed_.wake();
}

Job* MainQueue::takeOrSleep() noexcept {
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (Job* job = jobs_.pop()) return job;
            asleep_ = true;
        }
        bed_.wait();
    }
}

void MainQueue::serve() noexcept {
    giveUpRunning();  // launching is over
    for (;;) {
        Job* job = takeOrSleep();
        enterRunning();
        job->run(job);
        leaveRunning();
    }
}

void serveMainQueue() {
    MainQueue::shared().serve();
}

}  // namespace runtime
