// The io thread's own side of IoLoop, for the start of the runtime only.
#pragma once

#include "platform/linux/runtime.h"

namespace runtime {

// createIoLoop makes the loop and its descriptors (the process ends by SIGABRT when the system has none left);
// startIoThread runs it, once the exit and timer descriptors are watched. Both are declared with IoLoop.

/// The loop before its thread runs; IoLoop::shared() is for everyone else.
IoLoop& createdIoLoop();

}  // namespace runtime
