// One timer that comes again and again with growing pauses, for something that could not be done yet. While it is not
// started there is no timer. No lock of its own.
#pragma once

#include <memory>

#include <dispatch/dispatch.h>

#include "scheduler/LGCDTimer.h"

class LGCDRetry {
  public:
    /// Calls `attempt` on a worker thread after 1 s, once; nothing happens when it was started already. Throws
    /// std::bad_alloc with nothing started.
    void Start(dispatch_block_t attempt);
    /// Has it called once more, after twice the pause of the last time (at most 64 s). Needs no memory.
    void Again() noexcept;
    /// No further call starts. Legal inside `attempt`.
    void Stop() noexcept { source_.reset(); }

  private:
    void Arm() noexcept;

    std::unique_ptr<LGCDSource> source_;
    long pause_ = 0;  // seconds
};
