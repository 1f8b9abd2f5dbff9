// One road to the end of the process, bounded in time.
//
// Calling `exit` from a handler or from two threads hangs or crashes, so nobody above this line calls it. Whoever wants
// the process to end asks here; the first asker's status counts. Then, in this order:
//   1. the io thread arms a deadline of 2 s, stops accepting and reading, and wakes the ending thread;
//   2. the ending thread lets no new job start and waits up to 1 s for those still running; if one is left it calls
//      `_exit(status)`, since statics must not die under a running job;
//   3. otherwise it runs the steps registered with platform_set_ending_steps, and alone calls `exit(status)`;
//   4. past the deadline the io thread calls `_exit(status)`.
// Before the runtime is up, asking is a plain `exit(status)`.
#pragma once

/// Asks for the end and parks the calling thread for good: it gives up its gates, no longer counts as running, and
/// never goes on with its message. Callable from any thread, and from inside any event, handler or firing; asked again
/// by the ending itself (a step, a static's destructor), the process ends on the spot with the first status.
[[noreturn]] void platform_exit(int status);

/// Asks for the end from a signal handler and returns, so that the interrupted code can release what it holds.
/// Async-signal-safe; keeps errno.
void platform_exit_from_signal(int status) noexcept;

/// Asks for the end from the handler of a fault that an instruction raised: the thread cannot go on, so it waits in the
/// handler past the deadline and falls back to `_exit(status)`. Async-signal-safe.
[[noreturn]] void platform_exit_from_fault(int status) noexcept;

/// What the ending thread does between the last job and `exit`, in order of the fields; null fields are left out. A
/// flush of the user's defaults is tried between the two. Set once, before any event can arrive.
struct platform_ending_steps {
    void (*stop_firings)();
    void (*destroy_server)();
};
void platform_set_ending_steps(const platform_ending_steps& steps);
