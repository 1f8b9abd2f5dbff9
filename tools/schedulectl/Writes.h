// The commands that change schedules, over the service. The helper does not answer them, so each is confirmed: send,
// then the connection test on the same connection, then read the store.
#pragma once

#include "tools/schedulectl/Views.h"

namespace schedulectl {

Report AddReport(const World& world, const Screen& screen, const Options& options);
Report DeleteReport(const World& world, const Screen& screen, const Options& options);
/// Asks on the terminal unless told not to.
Report ClearReport(const World& world, const Screen& screen, const Options& options);
Report ImportReport(const World& world, const Screen& screen, const Options& options);

/// The application that a command concerns.
struct Target {
    std::string bundleId;
    std::string app;
};
/// The one named with --app, else the running Orvin, else the only one in the store. Throws Failure (usage).
Target FindTarget(const World& world, const Options& options);

/// What is stored for `asked`. Throws Failure (refused) where this system's numbers cannot hold it.
long EarlyStart(Moment asked);

/// Everything that keeps `schedule` from being sent: texts that the helper would not take, a record key that is taken,
/// a single start in the past. Throws Failure (refused).
void CheckBeforeSending(const Schedule& schedule, const World& world);

}  // namespace schedulectl
