// The tool's two entrances: one command from start to end, and the list that redraws itself.
#pragma once

#include "tools/schedulectl/Options.h"
#include "tools/schedulectl/Views.h"

namespace schedulectl {

/// Runs the command, prints what it says, and gives its exit code. Never throws.
int RunCommand(const Options& options);

/// Prints a failure as three lines on standard error, or as one JSON document on standard output; gives its exit code.
int ReportFailure(const Failure& failure, bool json, ColorChoice color, const std::string& command);

/// `watch`: until interrupted.
ExitCode Watch(const Options& options);

}  // namespace schedulectl
