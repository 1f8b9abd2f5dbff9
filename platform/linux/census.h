// Who is running project code: the ending waits for them, and lets nobody start once it has begun.
//
// A thread enters before a job and leaves after it; entering nests. Entering and the ending's closing of the census are
// ordered by one another: either the ending sees the thread as running, or the thread sees the closing and parks.
#pragma once

#include <cstdint>

namespace runtime {

/// Counts the calling thread as running. Never returns once the ending has begun: the thread parks for good.
void enterRunning() noexcept;
void leaveRunning() noexcept;

/// The calling thread no longer counts, however deep it has entered.
void giveUpRunning() noexcept;

/// From now on no job starts, except on the calling thread: the ending thread, which may run what it likes.
void forbidNewJobs() noexcept;

/// True once the ending has begun.
[[nodiscard]] bool newJobsForbidden() noexcept;

/// Waits until nobody runs any more; false after `nanoseconds`. After forbidNewJobs.
[[nodiscard]] bool waitForRunning(uint64_t nanoseconds) noexcept;

}  // namespace runtime
