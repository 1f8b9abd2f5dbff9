// Which application a write concerns, and what must hold before anything is sent.
#include <algorithm>
#include <filesystem>
#include <limits>

#include "app/LRequestKeys.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/Writes.h"

namespace schedulectl {
namespace {

std::string AbsolutePath(const std::string& path) {
    std::error_code ignored;
    std::string absolute = std::filesystem::absolute(path, ignored).lexically_normal().string();
    while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
    return absolute.empty() ? path : absolute;
}

Target NamedTarget(const World& world, const std::string& given) {
    Target target{BundleIdentifierOf(given), AbsolutePath(given)};
    for (const Schedule& schedule : world.schedules)
        if (target.bundleId.empty() && schedule.appPath == target.app) target.bundleId = schedule.bundleId;
    if (target.bundleId.empty()) target.bundleId = kMainAppBundleId;
    return target;
}

void CheckText(const char* kind, const std::string& text) {
    if (LIsScheduleText(text)) return;
    const bool tooLong = text.size() >= kScheduleTextSize;
    throw Failure{ExitCode::refused, std::string("This ") + kind + " cannot be stored",
                  tooLong ? "It has " + std::to_string(text.size()) + " bytes; " +
                                std::to_string(kScheduleTextSize - 1) + " is the most."
                          : "It is not UTF-8.",
                  std::string("Use a ") + (tooLong ? "shorter " : "UTF-8 ") + kind + "."};
}

}  // namespace

Target FindTarget(const World& world, const Options& options) {
    if (!options.app.empty()) return NamedTarget(world, options.app);
    if (const auto running = RunningMainApplication()) return {kMainAppBundleId, running->path};
    std::vector<Target> stored;
    for (const Schedule& schedule : world.schedules) {
        const bool known = std::any_of(stored.begin(), stored.end(),
                                       [&](const Target& target) { return target.app == schedule.appPath; });
        if (!known) stored.push_back({schedule.bundleId, schedule.appPath});
    }
    if (stored.size() == 1) return stored.front();
    std::string why = "Orvin is not running, and ";
    why += stored.empty() ? "no schedule is stored that would tell." : "the store has several:";
    for (size_t i = 0; i < stored.size() && i < 3; ++i) why += (i > 0 ? ", " : " ") + Printable(stored[i].app);
    throw Failure{ExitCode::usage, "Which application is it for?", why,
                  "Name its bundle with --app, as in --app " +
                      (stored.empty() ? "/opt/Orvin.app" : ShellWord(stored[0].app)) + "."};
}

long EarlyStart(Moment asked) {
    if (asked <= std::numeric_limits<long>::max()) return static_cast<long>(asked - earlySeconds);
    throw Failure{ExitCode::refused, "That moment is too far away", "This system counts moments with fewer digits.",
                  "Name an earlier one."};
}

void CheckBeforeSending(const Schedule& schedule, const World& world) {
    CheckText("name", schedule.skedName);
    CheckText("path", schedule.appPath);
    CheckText("identifier", schedule.bundleId);
    const std::string key = LScheduleKey(schedule.bundleId, schedule.appPath, schedule.skedName);
    if (key == kScheduleIndexKey)
        throw Failure{ExitCode::refused, "This schedule cannot be stored",
                      "Its record would take the place of the index of all schedules.", "Choose another name."};
    const Schedule* other = world.RecordAt(key);
    const bool same = other == nullptr || (other->bundleId == schedule.bundleId && other->appPath == schedule.appPath &&
                                           other->skedName == schedule.skedName);
    if (!same)
        throw Failure{ExitCode::refused, "This schedule cannot be stored",
                      "Its record would take the place of \"" + Printable(other->skedName) + "\" of " +
                          Printable(other->appPath) + ".",
                      "Choose another name."};
    if (!Repeats(schedule) && schedule.start.seconds <= world.now()) {
        const bool near = AskedMoment(schedule) > world.now();
        throw Failure{ExitCode::refused,
                      FormatAsked(AskedMoment(schedule), world.now()) + (near ? " is too near" : " has passed"),
                      near ? "Starts come 10 seconds early, so this one would have passed already."
                           : "A single start in the past never happens; missed starts are not made up.",
                      "Name a later moment, or repeat it with --daily or --weekly."};
    }
}

}  // namespace schedulectl
