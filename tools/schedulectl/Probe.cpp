// Asking around: the service itself, the folder that it lives in, and the session's service manager.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "app/LRequestKeys.h"
#include "tools/schedulectl/Health.h"
#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

constexpr const char* unitName = "schedulehelper.service";

/// The "NAME=value" lines that `command` prints; none when it cannot be run.
std::map<std::string, std::string> Properties(const std::string& command) {
    std::map<std::string, std::string> properties;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>/dev/null").c_str(), "r"), pclose);
    char line[512];
    while (pipe && fgets(line, sizeof line, pipe.get()) != nullptr) {
        const std::string text(line, strcspn(line, "\n"));
        const size_t sign = text.find('=');
        if (sign != std::string::npos) properties[text.substr(0, sign)] = text.substr(sign + 1);
    }
    return properties;
}

}  // namespace

UnitState AskServiceManager() {
    UnitState state;
    auto unit = Properties(std::string("systemctl --user show ") + unitName +
                           " -p LoadState -p UnitFileState -p ExecMainPID -p ExecMainStartTimestampMonotonic");
    state.known = unit.count("LoadState") != 0;
    state.installed = unit["LoadState"] == "loaded";
    state.enabled = unit["UnitFileState"];
    state.pid = static_cast<int>(strtol(unit["ExecMainPID"].c_str(), nullptr, 10));
    state.startedMonotonic = strtoll(unit["ExecMainStartTimestampMonotonic"].c_str(), nullptr, 10);
    if (state.known)
        state.linger = Properties("loginctl show-user " + std::to_string(getuid()) + " -p Linger")["Linger"];
    return state;
}

ServiceState AskService() {
    using Clock = std::chrono::steady_clock;
    Service service;
    const auto before = Clock::now();
    ServiceState state;
    state.answer = service.Test();
    state.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - before).count();
    return state;
}

bool ServiceIsForbidden() {
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr || runtime[0] != '/') return false;
    for (const std::string& folder : {std::string(runtime), std::string(runtime) + "/mach-services"}) {
        struct stat status {};
        if (stat(folder.c_str(), &status) != 0) return errno == EACCES;
        if (status.st_uid != geteuid() || (status.st_mode & 077) != 0) return true;
    }
    return false;
}

void ThrowNoService(const World& world) {
    if (ServiceIsForbidden())
        throw Failure{ExitCode::notAllowed, "This user may not connect to the helper",
                      "The folder of services is another user's, or is open to others: " +
                          Printable(getenv("XDG_RUNTIME_DIR")) + ".",
                      "Run it as the user who is logged in, without sudo."};
    if (!world.situation.helperRuns)
        throw Failure{ExitCode::helperDown, "No helper is running",
                      "Changes go through the helper, and nothing holds its lock.",
                      "systemctl --user start schedulehelper"};
    const auto since = world.situation.helperSince;
    const std::string when = since ? " (" + FormatMoment(*since, world.now()) + ")" : "";
    throw Failure{
        ExitCode::helperDown, "The helper runs, but offers no service",
        std::string(kMainAppName) + " was not running when the helper started" + when + "; it looks only then.",
        std::string("Start ") + kMainAppName + ", then: systemctl --user restart schedulehelper"};
}

}  // namespace schedulectl
