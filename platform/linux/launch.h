// Starting children that owe us nothing and inherit nothing, and collecting them when they end.
//
// A child is remembered, with what it was started for, until it has ended and was collected: a script that has just
// been started, or that hands over to another program, is not always recognisable by its process, but it is ours.
#pragma once

#include <string>

#include "file_status.h"

/// Starts `executable` (absolute) in a session of its own: default signals, none blocked, 0, 1 and 2 on /dev/null, no
/// other descriptor, working directory "/", our environment. True once it runs. Its end is waited for in the
/// background; it outlives us. Any thread. May throw std::bad_alloc, and has then started nothing.
bool launchDetached(const std::string& executable, FileIdentity application);

/// True while a child runs that was started for `application`.
bool launchedChildRuns(FileIdentity application);
