// Starting the runtime: the threads that everything else relies on.
#include "platform/linux/runtime.h"

#include "platform/linux/ending.h"
#include "platform/linux/io_thread.h"
#include "platform/linux/thread.h"
#include "platform/linux/timer_service.h"

namespace runtime {

void JobList::push(Job* job) {
    job->next = nullptr;
    if (tail_ != nullptr) {
        tail_->next = job;
    } else {
        head_ = job;
    }
    tail_ = job;
}

Job* JobList::pop() {
    Job* job = head_;
    if (job == nullptr) return nullptr;
    head_ = job->next;
    if (head_ == nullptr) tail_ = nullptr;
    job->next = nullptr;
    return job;
}

void start() {
    static const bool started = [] {
        keepSignalMask();
        createIoLoop();
        createTimers();
        startEnding();
        startIoThread();
        return true;
    }();
    (void)started;
}

}  // namespace runtime
