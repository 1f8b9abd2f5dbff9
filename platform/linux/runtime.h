// The runtime under queues, timers and connections: one io thread, one pool of workers, one main queue, none of which
// is ever destroyed.
//
// The io thread serves one epoll: sockets, one timerfd for every timer source, child pidfds and the exit eventfd. It
// runs nothing but watchers and io jobs of this folder, never project code, and takes no lock of the project's, so
// nothing can block it and it can watch over the ending. All else runs as jobs on queues. Threads of queues that have
// nothing to do take sockets off it (lookout.h).
//
// Posting a job allocates nothing: a job is a part of what it works for (a timer source, a message, a connection) and
// is linked into the queue by a field of its own. A job may be posted again as soon as its `run` has been entered.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>

#include <dispatch/dispatch.h>

namespace runtime {

void createIoLoop();
void startIoThread();

/// A unit of work. Whoever posts it keeps it alive until `run` was entered; `run` may destroy it.
struct Job {
    using Run = void (*)(Job*);
    explicit Job(Run function) : run(function) {}
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    Run run;
    Job* next = nullptr;
};

/// First in, first out; not synchronised.
class JobList {
  public:
    void push(Job* job);
    Job* pop();  // null when empty
    [[nodiscard]] bool empty() const { return head_ == nullptr; }

  private:
    Job* head_ = nullptr;
    Job* tail_ = nullptr;
};

}  // namespace runtime

/// What every queue is: somewhere to post jobs, in order.
struct dispatch_queue_s {
    virtual void post(runtime::Job* job) noexcept = 0;
    /// All of them, in their order; the list is empty afterwards.
    virtual void postAll(runtime::JobList& jobs) noexcept {
        while (runtime::Job* job = jobs.pop()) post(job);
    }
    /// By a job that ends with it: the calling thread is free for `job` at once.
    virtual void postLast(runtime::Job* job) noexcept { post(job); }
    virtual void retain() noexcept {}
    virtual void release() noexcept {}

  protected:
    ~dispatch_queue_s() = default;
};

namespace runtime {

/// A queue that runs one job at a time, over `target` (the pool when null). Meant to be a member of what it serves: its
/// owner keeps it alive until no job is left in it. The last job may destroy the queue as its last act, and so may any
/// other thread once that job has dropped its hold on the owner: the destructor then waits for the few instructions
/// that the queue's thread still needs. A long queue gives its thread back between turns, so that one busy queue does
/// not hold up another. Nothing here allocates.
class SerialQueue : public dispatch_queue_s {
  public:
    explicit SerialQueue(dispatch_queue_t target);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void post(Job* job) noexcept override;

    /// While suspended (counted) no further job starts; one that runs is not interrupted. A resume too many is ignored.
    void suspend() noexcept;
    void resume() noexcept;

    /// True on the thread that is running a job of this queue.
    [[nodiscard]] bool isCurrent() const noexcept;

  private:
    struct Turn final : Job {
        explicit Turn(SerialQueue* owner) : Job(takeTurn), queue(owner) {}
        SerialQueue* queue;
    };
    static void takeTurn(Job* job);
    Job* nextJob() noexcept;

    std::mutex mutex_;
    std::condition_variable turnEnded_;  // for the destructor
    JobList jobs_;
    dispatch_queue_t target_;
    Turn turn_;
    unsigned suspended_ = 0;
    bool scheduled_ = false;  // the turn is posted or runs
};

/// Called on the io thread when a watched descriptor is ready. Must not block.
class IoWatcher {
  public:
    virtual void ready(uint32_t events) noexcept = 0;

  protected:
    ~IoWatcher() = default;
};

/// The io thread. Started at first use; every function may be called from any thread unless it says otherwise.
class IoLoop {
  public:
    static IoLoop& shared();

    /// Watches `fd` for the epoll events `events` (level-triggered). False when the system refuses.
    bool watch(int fd, uint32_t events, IoWatcher* watcher) noexcept;
    bool change(int fd, uint32_t events, IoWatcher* watcher) noexcept;

    /// Stops watching `fd`, whose watcher is never destroyed: it may still be called for an event that was fetched.
    void ignore(int fd) noexcept;

    /// On the io thread only: after it returns the watcher is not called again, not even for events that this turn of
    /// the loop has already fetched. Close a watched descriptor only after this, and only on the io thread.
    void forget(int fd, IoWatcher* watcher) noexcept;

    /// Runs `job` on the io thread, soon; jobs run in order.
    void post(Job* job) noexcept;

    /// Runs `job` on the io thread once the steady clock has passed `deadline`. On the io thread only; not cancellable.
    /// Few at a time.
    void postAt(dispatch_time_t deadline, Job* job) noexcept;

    IoLoop(const IoLoop&) = delete;
    IoLoop& operator=(const IoLoop&) = delete;

  private:
    IoLoop();
    friend void createIoLoop();
    friend void startIoThread();
    struct Body;
    Body* body_;
};

/// Runs one piece of project code under the trampoline's rules: std::bad_alloc leaving it is swallowed (that event is
/// lost, the process goes on), anything else terminates.
template <typename Function>
void runGuarded(Function&& function) noexcept {
    try {
        function();
    } catch (const std::bad_alloc&) {
    }
}

/// Starts the io thread and the ending thread now, with signals handled on other threads. Idempotent; the queues, the
/// io loop and the timers call it when they are first used. A process forks before this or not at all.
void start();

/// What follows on this worker may take long: the io thread takes over what idle workers watch, until one is back.
void expectToBlock() noexcept;

/// Marks project code on a thread that is no worker (the application's launching on the main thread) as running, for as
/// long as it lives: the ending waits for it as for a job. Given up by platform_exit and by dispatch_main. Made after
/// the ending has begun it parks the thread for good, as no new work may start.
class RunningScope {
  public:
    RunningScope();
    ~RunningScope();
    RunningScope(const RunningScope&) = delete;
    RunningScope& operator=(const RunningScope&) = delete;
};

/// Serves the main queue on the calling thread for good.
[[noreturn]] void serveMainQueue();

}  // namespace runtime
