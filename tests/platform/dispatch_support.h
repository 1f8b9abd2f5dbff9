// What the tests of the runtime share: a source with its handler, and a child process that leaves a trace.
#pragma once

#include <dispatch/dispatch.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>

#include "platform/linux/runtime.h"

/// A job that is part of what it works for, as in the product.
struct Step final : runtime::Job {
    explicit Step(dispatch_block_t function) : Job(perform), work(std::move(function)) {}
    static void perform(runtime::Job* job) { static_cast<Step*>(job)->work(); }
    dispatch_block_t work;
};

/// A timer source that is cancelled and released at the end of the scope.
class Timer {
  public:
    Timer(dispatch_queue_t queue, dispatch_block_t handler)
        : source(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue)) {
        dispatch_source_set_event_handler(source, std::move(handler));
    }
    ~Timer() {
        dispatch_source_cancel(source);
        dispatch_release(source);
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void arm(dispatch_time_t start, uint64_t interval = DISPATCH_TIME_FOREVER) {
        dispatch_source_set_timer(source, start, interval, 0);
        dispatch_resume(source);
    }

    const dispatch_source_t source;
};

/// For a condition that some other thread will bring about and has no way to announce; a hang is the failure.
template <typename Condition>
void waitUntil(Condition condition) {
    while (!condition()) std::this_thread::sleep_for(std::chrono::microseconds(100));
}

/// A forked child whose end is observed: `trace` is what it wrote with leave(), in order. Fork before any thread
/// exists.
class Child {
  public:
    template <typename Body>
    explicit Child(Body body) {
        if (pipe(ends_) != 0) std::abort();
        pid = fork();
        if (pid != 0) {
            close(ends_[1]);
            return;
        }
        traceEnd_ = ends_[1];
        body();
        _exit(125);  // a body ends the process itself
    }

    static void leave(char mark) { (void)!write(traceEnd_, &mark, 1); }

    /// Blocks for the child's next mark; 0 at its end.
    char next() {
        char mark = 0;
        ssize_t got = 0;
        while ((got = read(ends_[0], &mark, 1)) < 0 && errno == EINTR) {
        }
        return got == 1 ? mark : '\0';
    }

    /// Waits for the child's end: its exit status (or minus the signal) and all marks not read yet.
    std::pair<int, std::string> finish() {
        std::string trace;
        while (char mark = next()) trace += mark;
        close(ends_[0]);
        int status = 0;
        waitpid(pid, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), trace};
    }

    pid_t pid = -1;

  private:
    inline static int traceEnd_ = -1;
    int ends_[2] = {-1, -1};
};
