// The findings of doctor, each check by itself.
#include <algorithm>
#include <ctime>
#include <set>

#include "app/LRequestKeys.h"
#include "tools/schedulectl/Health.h"
#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

using Level = Finding::Level;
using Findings = std::vector<Finding>;

constexpr const char* restartHelper = "systemctl --user restart schedulehelper";

void ExamineHelper(const World& world, Findings& findings) {
    const Situation& situation = world.situation;
    if (!situation.helperRuns) {
        findings.push_back({Level::bad, "helper", "No helper is running, so nothing starts.",
                            "Nothing holds the lock beside the store.", "systemctl --user start schedulehelper"});
        return;
    }
    const std::string pid = world.helperPid > 0 ? ", process " + std::to_string(world.helperPid) : "";
    const auto& since = situation.helperSince;
    findings.push_back({Level::good, "helper",
                        "running" + pid + (since ? ", since " + FormatMoment(*since, situation.now) : ""), "", ""});
    if (situation.offsetChanged())
        findings.push_back({Level::bad, "clocks", "Clocks changed since the helper started.",
                            "It was " + ZoneName(*since) + " then and is " + ZoneName(situation.now) +
                                " now; what repeats keeps its fixed interval and starts at other times of day.",
                            restartHelper});
}

void ExamineService(const World& world, const ServiceState& service, Findings& findings) {
    if (service.answer == Service::Answer::yes) {
        char text[48];
        (void)snprintf(text, sizeof text, "offered, answers in %.1f ms", service.milliseconds);
        findings.push_back({Level::good, "service", text, "", ""});
        return;
    }
    try {
        if (service.answer == Service::Answer::silence) throw Silence();
        ThrowNoService(world);
    } catch (const Failure& failure) {
        findings.push_back({Level::bad, "service", failure.what + ".", failure.why, failure.remedy});
    }
}

void ExamineUnit(const UnitState& unit, Findings& findings) {
    if (!unit.known) {
        findings.push_back({Level::note, "unit", "The session's service manager cannot be asked.",
                            "systemctl --user gives no answer here.",
                            "Make sure that something starts the helper with your session."});
    } else if (unit.loaded == "not-found") {
        findings.push_back({Level::bad, "unit", "The helper's unit is not installed.",
                            "systemd knows no schedulehelper.service.",
                            "Install the package, then: systemctl --user enable --now schedulehelper"});
    } else if (unit.loaded == "masked") {
        findings.push_back({Level::bad, "unit", "The helper's unit is masked, so nothing can start it.",
                            "Somebody has put it out of use.", "systemctl --user unmask schedulehelper"});
    } else if (unit.loaded != "loaded") {
        findings.push_back({Level::bad, "unit", "The helper's unit cannot be used.",
                            "systemd says of its file: " + Printable(unit.loaded) + ".",
                            "systemctl --user status schedulehelper"});
    } else if (unit.enabled != "enabled") {
        findings.push_back({Level::bad, "unit", "The helper does not start with your session.",
                            "Its unit is " + (unit.enabled.empty() ? "not enabled" : Printable(unit.enabled)) + ".",
                            "systemctl --user enable schedulehelper"});
    } else {
        findings.push_back({Level::good, "unit", "enabled, starts with your graphical session", "", ""});
    }
    if (unit.known && unit.linger == "no")
        findings.push_back({Level::good, "linger", "off: the helper ends with your session", "", ""});
    if (unit.linger == "yes")
        findings.push_back(
            {Level::good, "linger", "on, but the helper's unit still ends with your graphical session", "", ""});
}

int64_t Milliseconds(clockid_t clock) {
    timespec time{};
    (void)clock_gettime(clock, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

/// Timers stand still while the machine sleeps. How long it slept since the helper's start is known where the service
/// manager noted that start on the monotonic clock; otherwise only how long it slept since it was switched on.
void ExamineSleep(const World& world, const UnitState& unit, Findings& findings) {
    if (!world.situation.helperRuns) return;
    const int64_t monotonic = Milliseconds(CLOCK_MONOTONIC), slept = Milliseconds(CLOCK_BOOTTIME) - monotonic;
    if (slept < 1000) {
        findings.push_back({Level::good, "sleep", "the machine has not slept since it was switched on", "", ""});
        return;
    }
    if (world.situation.helperSince && world.situation.sleptAtMost < 2) {
        findings.push_back({Level::good, "sleep", "the machine has not slept since the helper started", "", ""});
        return;
    }
    const bool exact =
        unit.pid > 0 && unit.pid == world.helperPid && unit.startedMonotonic > 0 && world.situation.helperSince;
    if (!exact) {
        findings.push_back({Level::note, "sleep", "The machine has slept " + FormatSpan(slept / 1000) + " in all.",
                            "Starts are late by what it slept since the helper's start, at most " +
                                FormatSpan(world.situation.sleptAtMost) + "; how much that is cannot be told.",
                            restartHelper});
        return;
    }
    const int64_t awake = (monotonic - unit.startedMonotonic / 1000) / 1000;
    const int64_t late = std::min(world.now() - *world.situation.helperSince - awake, slept / 1000);
    if (late < 2)
        findings.push_back({Level::good, "sleep", "the machine has not slept since the helper started", "", ""});
    else
        findings.push_back({Level::bad, "sleep", "The machine slept since the helper started.",
                            "Timers stand still meanwhile, so starts are about " + FormatSpan(late) + " late.",
                            restartHelper});
}

void ExamineStore(const World& world, Findings& findings) {
    const StoreState& store = world.store;
    if (store.problem)
        findings.push_back({Level::bad, "store", store.problem->what + ".", store.problem->why, store.problem->remedy});
    else if (!store.exists)
        findings.push_back({Level::good, "store", "none yet; the first schedule makes it", "", ""});
    else
        findings.push_back({Level::good, "store",
                            "sound, " + Count(world.schedules.size(), "schedule") + " in " + Printable(store.path), "",
                            ""});
    for (const std::string& path : store.setAside)
        findings.push_back({Level::note, "store", "A store that could not be used was put aside.",
                            "The helper found it damaged, of a later version or not its own: " + Printable(path) + ".",
                            "Bring schedules back with \"schedulectl import\", then delete the file."});
    if (store.keysOnly > 0)
        findings.push_back({Level::note, "store",
                            "The index lists " + Count(store.keysOnly, "key") + " without a usable record.",
                            "Their applications were gone when the helper started, or a record was changed by hand.",
                            "Nothing needs doing: the helper passes over them."});
}

void ExamineApplications(const World& world, Findings& findings) {
    std::set<std::string> seen;
    for (const Schedule& schedule : world.schedules) {
        if (!seen.insert(schedule.appPath).second) continue;
        const Application& application = world.ApplicationOf(schedule);
        const std::string path = Printable(schedule.appPath);
        if (!application.there)
            findings.push_back(
                {Level::bad, "application", path + " is gone.", "The helper forgets its schedules when it starts.",
                 "Put it back, or delete its schedules: schedulectl clear --app " + ShellWord(schedule.appPath)});
        else if (!application.fits)
            findings.push_back({Level::bad, "application", path + " is not started.",
                                "Its version is " + (application.version.empty() ? "missing" : application.version) +
                                    "; the helper starts only " + kMainAppVersion + ".",
                                std::string("Install version ") + kMainAppVersion + " there."});
        else
            findings.push_back({Level::good, "application", path + ", version " + application.version, "", ""});
    }
}

void ExamineSchedules(const World& world, Findings& findings) {
    for (const Schedule& schedule : world.schedules) {
        const Outlook outlook = world.OutlookOf(schedule);
        const std::string name = "\"" + Printable(schedule.skedName) + "\"";
        const Application& application = world.ApplicationOf(schedule);
        if (!outlook.next && application.fits)
            findings.push_back({Level::note, "schedule", name + " never starts.", "Because " + outlook.never + ".",
                                "schedulectl delete " + ShellWord(schedule.skedName) + ", or add it again."});
        for (const std::string& warning : outlook.warnings)
            findings.push_back({Level::note, "schedule", name + " may surprise.", warning,
                                "schedulectl show " + ShellWord(schedule.skedName)});
    }
}

}  // namespace

std::vector<Finding> Examine(const World& world, const ServiceState& service, const UnitState& unit) {
    Findings findings;
    ExamineHelper(world, findings);
    if (world.situation.helperRuns || WhyForbidden(world)) ExamineService(world, service, findings);
    ExamineUnit(unit, findings);
    ExamineSleep(world, unit, findings);
    ExamineStore(world, findings);
    ExamineApplications(world, findings);
    ExamineSchedules(world, findings);
    return findings;
}

}  // namespace schedulectl
