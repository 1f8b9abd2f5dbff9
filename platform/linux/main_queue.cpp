#include "platform/linux/main_queue.h"

#include <utility>

#include "platform/linux/census.h"

namespace runtime {

namespace {

thread_local bool servesMainQueue = false;

}  // namespace

MainQueue::MainQueue() {
    start();
}

MainQueue& MainQueue::shared() {
    static MainQueue* const queue = new MainQueue;
    return *queue;
}

void MainQueue::post(Job* job) noexcept {
    Lookout* lookout = nullptr;
    {
        const std::lock_guard lock(mutex_);
        jobs_.push(job);
        if (!asleep_) return;
        asleep_ = false;
        lookout = lookout_;
    }
    if (servesMainQueue) return;  // in a glance
    if (lookout != nullptr) {
        lookout->ring();
    } else {
        bed_.wake();
    }
}

Job* MainQueue::takeOrSleep() noexcept {
    bool onWatch = false;
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (Job* job = jobs_.pop()) {
                asleep_ = false;
                if (onWatch) lookout_->leave();
                return job;
            }
            asleep_ = true;
            if (!onWatch) lookout_ = Lookout::ofMainQueueIfMade();
        }
        if (lookout_ == nullptr) {
            bed_.wait();
        } else if (!std::exchange(onWatch, true)) {
            lookout_->take();  // and looks again: who rang before may have been heard by the io thread
        } else {
            lookout_->wait();
        }
    }
}

void MainQueue::serve() noexcept {
    giveUpRunning();  // launching is over
    servesMainQueue = true;
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
