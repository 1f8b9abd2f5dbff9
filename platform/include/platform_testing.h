// Hooks for tests, benches and tools: the only place where the product can be told to be something else than it is.
// Nothing in the product calls these, and nothing asks whether it is being tested.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include <xpc/xpc.h>

namespace platform_testing {

/// What Gestalt answers from now on; a negative number makes that query fail.
void set_system_version(int major, int minor);

/// A suspended connection object that reports `pid` as its peer and is connected to nothing (its first event after a
/// resume is CONNECTION_INVALID). One reference.
xpc_connection_t make_connection_with_pid(pid_t pid);

/// While one lives, timer sources follow this clock instead of the monotonic one. Make it before the first source is
/// armed; one at a time.
class ManualClock {
  public:
    ManualClock();
    ~ManualClock();
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    /// Moves the clock and hands every source that is due by then to its queue. Returns when all the calls thus started
    /// have returned, so not to be called from a handler, nor from the thread that serves a source's queue. A source
    /// that is armed when already due fires at the next advance, which may be by 0.
    void advance(uint64_t nanoseconds);
};

/// Makes NSUserDefaults::standardUserDefaults forget what it holds and use the file at `path` (which need not exist)
/// from now on. No other thread may be using the object.
void use_defaults_at(const std::string& path);

}  // namespace platform_testing
