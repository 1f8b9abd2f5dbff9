// The workers behind the global queue and every serial queue.
//
// Up to 8 threads; one is started when a job waits and none is idle, and none ever ends. Idle workers lie on a stack,
// each on a bed of its own: a job that is posted while somebody is idle is handed to the one who was busy last, whose
// stack and caches are the warmest, and exactly that thread is woken.
//
// One idle worker is on watch instead, at the workers' lookout, and does itself what a message that comes in
// asks for: the first job that it posts meanwhile is its own. Other jobs go to those on the stack first.
//
// Many jobs that are posted at once are left to two workers at first: short ones would be done before eight of them had
// woken up, and all eight want the same locks. Then idle workers and a list that is not empty do go together, and the
// io thread looks every millisecond whether the list gets shorter as fast as it does with short jobs. If not, the jobs
// are long ones or wait for something, and each gets a worker, up to the eight.
#pragma once

#include <mutex>

#include "platform/linux/lookout.h"
#include "platform/linux/runtime.h"
#include "platform/linux/thread.h"

namespace runtime {

class WorkerPool final : public dispatch_queue_s {
  public:
    static constexpr unsigned kMostThreads = 8;

    static WorkerPool& shared();

    /// Any thread. When no thread is to be had, the job waits for one of the others; the start is tried again soon.
    void post(Job* job) noexcept override;
    void postAll(JobList& jobs) noexcept override;
    void postLast(Job* job) noexcept override;

    /// Threads that have been started so far.
    [[nodiscard]] unsigned threadCount();

  private:
    struct Worker {
        Parking bed;
        Job* handed = nullptr;
        Worker* nextIdle = nullptr;
    };

    /// What is to be done for the waiting jobs once the lock is no longer held.
    struct Help {
        Worker* woken = nullptr;  // linked by nextIdle; each has been handed its job
        unsigned missing = 0;     // threads to start
        bool ring = false;        // the one on watch has been handed a job
    };

    WorkerPool();
    [[noreturn]] static void work();
    Job* takeOrSleep(Worker& self) noexcept;
    Job* keepWatch(Worker& self) noexcept;
    [[nodiscard]] bool handToWatch() noexcept;
    [[nodiscard]] Job* takeLocked() noexcept;
    [[nodiscard]] bool needsThread() const { return waiting_ > starting_ && threads_ < kMostThreads; }
    /// Jobs wait although there could be a worker for them.
    [[nodiscard]] bool crowded() const { return waiting_ > starting_ && threads_ - resting_ < kMostThreads; }
    [[nodiscard]] Help helpLocked(unsigned most) noexcept;
    void bring(Help help) noexcept;
    void startWorker() noexcept;
    static void askForDelay(Job* job);
    static void retry(Job* job);
    static void askForLook(Job* job);
    static void look(Job* job);

    std::mutex mutex_;
    JobList jobs_;
    unsigned waiting_ = 0;   // jobs in the list
    unsigned starting_ = 0;  // threads that have not yet looked at the list
    unsigned threads_ = 0;
    unsigned taken_ = 0;  // jobs taken from the list since the last look
    Worker* idle_ = nullptr;
    unsigned resting_ = 0;       // workers on that stack, and the one on watch until it is handed a job
    Worker* onWatch_ = nullptr;  // at the lookout, asleep or glancing
    Lookout* const lookout_;
    bool looking_ = false;
    bool retrying_ = false;
    Job askForDelay_{askForDelay};
    Job retry_{retry};
    Job askForLook_{askForLook};
    Job look_{look};
};

}  // namespace runtime
