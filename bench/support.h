// What the benchmarks share: processes of their own, a helper in a home of its own, stores of a given size, clocks.
//
// Whatever these make lies in a temporary folder, under TMPDIR where that is set, and goes with its owner. A child is
// made by posix_spawn, never by a bare fork: the programs have threads.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/TempHome.h"
#include "xpc/LXPCClient.h"

/// This moment on the steady clock, in nanoseconds.
int64_t SteadyNanoseconds();
/// Sleeps until that moment; returns at once when it has passed.
void SleepUntil(int64_t steadyNanoseconds);

/// The path of the running program, to start it a second time in another role.
std::string OwnProgram();

/// A child process, ended (SIGKILL) and collected at the latest with this object. Throws when it cannot be started.
class Child {
  public:
    /// `words` begins with the program's path. `descriptor`, where given, becomes the child's descriptor 3.
    explicit Child(const std::vector<std::string>& words, int descriptor = -1);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    /// Waits for its end; the status as waitpid gives it.
    int Collect();

  private:
    pid_t pid_ = 0;
    bool collected_ = false;
};

/// Two ends of a Unix stream; an end is closed with this object at the latest.
class StreamPair {
  public:
    StreamPair();
    ~StreamPair();
    StreamPair(const StreamPair&) = delete;
    StreamPair& operator=(const StreamPair&) = delete;
    void CloseTheirs();

    int ours = -1;
    int theirs = -1;
};

/// What a benchmark stores: `count` one-off schedules of the application at `appPath`, due at `start` (seconds since
/// 1970), named after their number. They go to this process's defaults in one commit.
void StoreSchedules(size_t count, const std::string& appPath, long start);
std::string ScheduleName(size_t number);

/// The path of the store in this process's home.
std::string StorePath();
/// Has this process's defaults begin anew with what is in the file there.
void ReopenStore();

/// The real helper with the example main application running beside it, so that it offers its service; both have the
/// environment of this process, whose home must be a temporary one.
class HelperRun {
  public:
    HelperRun();

    [[nodiscard]] pid_t pid() const { return helper_->pid(); }
    /// Starts the helper, or starts it anew, and does not wait for anything.
    void StartHelper();
    void EndHelper() { helper_.reset(); }
    /// The bundle of the main application that runs.
    static std::string Application();
    /// The socket on which the helper listens.
    static std::string Socket();

  private:
    std::unique_ptr<Child> application_;
    std::unique_ptr<Child> helper_;
};

/// One client of the helper. Requests are chained from event to event, as a main application would: the calling thread
/// waits for the last. Needs the main queue to be served on another thread.
class HelperClient : public LXPCEventNotify {
  public:
    HelperClient();
    ~HelperClient();

    /// Connects, again and again until the helper answers. Throws after 30 s.
    void Find();
    /// Asks `count` times, each time when the answer to the last has come.
    void Ask(const std::vector<LXPCData>& request, int64_t count);
    void Tell(const std::vector<LXPCData>& request);

    void EvConnectionError(long connection, LXPCErrorType error) override;
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long) override {}

  private:
    struct Waiting;
    void Send();
    std::unique_ptr<Waiting> waiting_;
    std::unique_ptr<LXPCClient> client_;
};

/// The request of six entries whose bytes on the wire are about 300, answered with one entry and changing nothing.
std::vector<LXPCData> QuestionOfSixEntries();

/// The main of a benchmark that talks to the helper: runs the benchmarks on a thread of their own, in a temporary home,
/// while the first thread serves the main queue. Where `serve` is given, "--serve=ROLE" has it called with ROLE
/// instead, and its result is the status.
int RunBenchmarks(int argc, char** argv, int (*serve)(const std::string& role) = nullptr);
