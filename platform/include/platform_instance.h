// Whether the helper runs, asked from outside.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace platform_instance {

struct Status {
    bool running = false;
    /// 0 when nothing runs, or when the running instance could not write it down.
    pid_t pid = 0;
    /// The second since 1970 in which the instance started; 0 as above.
    int64_t startedAt = 0;
};

/// Looks at the instance lock in the user's standard place. Makes nothing.
Status query();

}  // namespace platform_instance
