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
    state.loaded = unit["LoadState"];
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

namespace {

/// What a folder on the way to the service is to this user.
enum class Folder { missing, ours, open, foreign };

Folder Look(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return errno == EACCES ? Folder::foreign : Folder::missing;
    if (status.st_uid != geteuid()) return Folder::foreign;
    return S_ISDIR(status.st_mode) && (status.st_mode & 077) == 0 ? Folder::ours : Folder::open;
}

std::optional<Failure> Barred(const std::string& path, Folder folder) {
    const bool foreign = folder == Folder::foreign;
    return Failure{ExitCode::notAllowed, "This user may not connect to the helper",
                   "The folder of services " + std::string(foreign ? "is another user's: " : "is open to others: ") +
                       Printable(path) + ".",
                   foreign ? "Run it as the user who is logged in, without sudo."
                           : "chmod 700 " + ShellWord(path) + ", then: systemctl --user restart schedulehelper"};
}

}  // namespace

/// The places are those of the service itself, in its order: the first one that is this user's alone decides.
std::optional<Failure> WhyForbidden(const World& world) {
    const std::string user = std::to_string(geteuid());
    const char* variable = getenv("XDG_RUNTIME_DIR");
    const std::string runtime = variable != nullptr && variable[0] == '/' ? variable : "";
    std::string services = "/tmp/mach-services-" + user;
    for (const std::string& place : {"/run/user/" + user, runtime})
        if (!place.empty() && Look(place) == Folder::ours) services = place + "/mach-services";
    const Folder last = Look(services);
    if (last == Folder::open || last == Folder::foreign) return Barred(services, last);
    if (runtime.empty()) return std::nullopt;
    // A runtime folder that does not count: with sudo it is the other user's; opened to others while the helper runs,
    // it hides the service.
    const Folder first = Look(runtime);
    const bool bars = first == Folder::foreign || (first == Folder::open && world.situation.helperRuns);
    return bars ? Barred(runtime, first) : std::nullopt;
}

Failure Silence() {
    return {ExitCode::helperDown, "The helper does not answer", "It accepted the connection and stayed silent for 5 s.",
            "systemctl --user restart schedulehelper"};
}

void ThrowNoService(const World& world) {
    if (const auto forbidden = WhyForbidden(world)) throw Failure(*forbidden);
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
