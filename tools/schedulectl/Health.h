// What is the matter with the helper: status on one screen, and doctor with everything that can be known from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/schedulectl/Service.h"
#include "tools/schedulectl/Views.h"

namespace schedulectl {

struct Finding {
    enum class Level { good, note, bad };
    Level level = Level::good;
    std::string check;  // what was looked at, in a word or two
    std::string what;
    std::string why;     // empty where nothing is wrong
    std::string remedy;  // likewise
};

/// What the session's service manager says of the helper's unit; all empty where it cannot be asked.
struct UnitState {
    bool known = false;
    std::string loaded;            // "loaded", "not-found", "masked", ...
    std::string enabled;           // "enabled", "disabled", ...
    int64_t startedMonotonic = 0;  // microseconds on the monotonic clock; 0: not started by the unit
    int pid = 0;
    std::string linger;  // "yes", "no" or empty
};
UnitState AskServiceManager();

struct ServiceState {
    Service::Answer answer = Service::Answer::gone;
    double milliseconds = 0;
};
/// One connection test, timed.
ServiceState AskService();

/// What bars this user from the helper's service, where a folder on the way to it is not this user's alone.
std::optional<Failure> WhyForbidden(const World& world);
/// The helper is there, takes connections and does not answer.
Failure Silence();

std::vector<Finding> Examine(const World& world, const ServiceState& service, const UnitState& unit);

Report StatusReport(const World& world, const Screen& screen);
Report DoctorReport(const World& world, const Screen& screen);
Report PingReport(const World& world, const Screen& screen, const Options& options);
Report IntroduceReport(const World& world, const Screen& screen, const Options& options);
Report IdleReport(const World& world, const Screen& screen, const Options& options);
Report ShutdownReport(const World& world, const Screen& screen, const Options& options);

}  // namespace schedulectl
