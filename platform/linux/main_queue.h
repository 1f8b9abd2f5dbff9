// The main queue: serial, run by the process's first thread once that has nothing else to do. In a process with
// connections to services that thread sleeps at a lookout and reads what comes in for it itself.
#pragma once

#include <mutex>

#include "platform/linux/lookout.h"
#include "platform/linux/runtime.h"
#include "platform/linux/thread.h"

namespace runtime {

class MainQueue final : public dispatch_queue_s {
  public:
    static MainQueue& shared();

    /// Any thread, also before the queue is served.
    void post(Job* job) noexcept override;

    /// One thread only.
    [[noreturn]] void serve() noexcept;

  private:
    MainQueue();
    Job* takeOrSleep() noexcept;

    std::mutex mutex_;
    JobList jobs_;
    bool asleep_ = false;
    Lookout* lookout_ = nullptr;  // where it sleeps, if not in its bed
    Parking bed_;
};

}  // namespace runtime
