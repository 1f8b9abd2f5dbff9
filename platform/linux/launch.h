// Starting a child that owes us nothing and inherits nothing, and collecting it when it ends.
#pragma once

#include <string>

/// Starts `executable` (absolute) in a session of its own: default signals, none blocked, 0, 1 and 2 on /dev/null, no
/// other descriptor, working directory "/", our environment. True once it runs. Its end is waited for in the
/// background; it outlives us. Any thread.
bool launchDetached(const std::string& executable);
