// The workers behind the global queue and every serial queue.
//
// Up to 8 threads; one is started when a job waits and none is idle, and none ever ends. Idle workers lie on a stack,
// each on a bed of its own: a job that is posted while somebody is idle is handed to the one who was busy last, whose
// stack and caches are the warmest, and exactly that thread is woken. Jobs lie in the list only while nobody is idle.
#pragma once

#include <mutex>

#include "platform/linux/runtime.h"
#include "platform/linux/thread.h"

namespace runtime {

class WorkerPool final : public dispatch_queue_s {
  public:
    static constexpr unsigned kMostThreads = 8;

    static WorkerPool& shared();

    /// Any thread. When no thread is to be had, the job waits for one of the others; the start is tried again soon.
    void post(Job* job) noexcept override;

    /// Threads that have been started so far.
    [[nodiscard]] unsigned threadCount();

  private:
    struct Worker {
        Parking bed;
        Job* handed = nullptr;
        Worker* nextIdle = nullptr;
    };

    WorkerPool();
    [[noreturn]] static void work();
    Job* takeOrSleep(Worker& self) noexcept;
    [[nodiscard]] bool needsThread() const { return waiting_ > starting_ && threads_ < kMostThreads; }
    void startWorker() noexcept;
    static void askForDelay(Job* job);
    static void retry(Job* job);

    std::mutex mutex_;
    JobList jobs_;
    unsigned waiting_ = 0;   // jobs in the list
    unsigned starting_ = 0;  // threads that have not yet looked at the list
    unsigned threads_ = 0;
    Worker* idle_ = nullptr;
    bool retrying_ = false;
    Job askForDelay_{askForDelay};
    Job retry_{retry};
};

}  // namespace runtime
