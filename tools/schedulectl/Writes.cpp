#include "tools/schedulectl/Writes.h"

#include <algorithm>
#include <set>

#include "app/LRequestKeys.h"
#include "tools/schedulectl/Confirm.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/When.h"

namespace schedulectl {
namespace {

std::string Quoted(const Schedule& schedule) {
    return "\"" + Printable(schedule.skedName) + "\"";
}

bool SameIdentity(const Schedule& a, const Schedule& b) {
    return a.bundleId == b.bundleId && a.appPath == b.appPath && a.skedName == b.skedName;
}

Schedule WantedSchedule(const World& world, const Options& options) {
    Schedule schedule;
    schedule.skedName = options.names.at(0);
    if (schedule.skedName.empty())
        throw Failure{ExitCode::usage, "The name is empty", "A schedule is told from others by its name.",
                      "schedulectl add Standup --at 09:00 --daily"};
    schedule.start.seconds = EarlyStart(ParseWhen(options.at, world.now()).moment);
    schedule.daily = options.daily;
    schedule.weekly = options.weekly.has_value();
    if (options.weekly) schedule.weekDays.mask = ParseDays(*options.weekly);
    const Target target = FindTarget(world, options);
    schedule.bundleId = target.bundleId;
    schedule.appPath = target.app;
    return schedule;
}

/// What is to be expected of a schedule that is about to be stored.
Outlook OutlookOnceStored(const Schedule& schedule, const World& world) {
    Situation armed = world.situation;
    armed.helperSince = world.now();  // it is armed now, whenever the helper started
    armed.helperRuns = true;
    return LookAt(schedule, world.ApplicationOf(schedule), armed, world.TwinOf(schedule));
}

/// What may surprise about it.
std::vector<std::string> WarningsOf(const Outlook& outlook) {
    std::vector<std::string> warnings = outlook.warnings;
    if (!outlook.next) warnings.insert(warnings.begin(), "It never starts: " + outlook.never + ".");
    return warnings;
}

std::string Conclusion(const Outlook& outlook, const World& world) {
    if (!outlook.next) return {};
    return ". First start " + FormatMoment(outlook.next->likely, world.now()) + ", " +
           FormatRelative(outlook.next->likely, world.now());
}

Request AddRequest(const Schedule& schedule) {
    return Request()
        .Text(kKeyBundleId, schedule.bundleId)
        .Text(kKeyBundlePath, schedule.appPath)
        .Text(kKeyNewName, schedule.skedName)
        .Date(kKeyNewTime, AskedMoment(schedule))
        .Flag(kKeyNewDaily, schedule.daily)
        .Flag(kKeyNewWeekly, schedule.weekly)
        .Number(kKeyNewWeekdayMask, schedule.weekDays.mask);
}

Request DeleteRequest(const Schedule& schedule) {
    return Request()
        .Text(kKeyBundleId, schedule.bundleId)
        .Text(kKeyBundlePath, schedule.appPath)
        .Text(kKeyDeleteName, schedule.skedName);
}

void AddWarnings(Report& report, const Screen& screen, const std::vector<std::string>& warnings) {
    report.json["warnings"] = warnings;
    for (const std::string& warning : warnings) report.text += screen.Paragraph(warning, 2, Style::warning);
}

std::string KeyOf(const Schedule& schedule) {
    return LScheduleKey(schedule.bundleId, schedule.appPath, schedule.skedName);
}

const Schedule* Find(const World& world, const Schedule& wanted) {
    const Schedule* stored = world.RecordAt(KeyOf(wanted));
    return stored != nullptr && SameIdentity(*stored, wanted) ? stored : nullptr;
}

constexpr const char* nothingSent = "Nothing was sent.";

std::vector<std::string> WarningsOfDelete(const std::vector<Schedule>& goes, const World& world) {
    std::vector<std::string> warnings;
    for (const Schedule& gone : goes) {
        const Schedule* twin = world.TwinOf(gone);
        const bool goesToo = twin != nullptr && std::any_of(goes.begin(), goes.end(), [&](const Schedule& other) {
                                 return SameIdentity(other, *twin);
                             });
        if (twin != nullptr && !goesToo)
            warnings.push_back(Quoted(*twin) + " differs from " + Quoted(gone) +
                               " only in case and may lose its timer with it, until the helper starts again.");
    }
    return warnings;
}

}  // namespace

Report AddReport(const World& world, const Screen& screen, const Options& options) {
    const Schedule wanted = WantedSchedule(world, options);
    CheckBeforeSending(wanted, world);
    const Schedule* old = Find(world, wanted);
    const std::string was = old == nullptr ? "" : " (was " + Describe(*old, world.now()) + ")";

    Report report{"", Document("add")};
    report.json["result"] = options.dryRun ? (old ? "would replace" : "would add") : (old ? "replaced" : "added");
    report.json["schedule"] = ToJson(wanted);
    report.json["was"] = old ? ToJson(*old) : Json();
    if (!options.dryRun) {
        const World after = SendAndLook(world, {AddRequest(wanted)});
        const Schedule* stored = Find(after, wanted);
        if (stored == nullptr || !(*stored == wanted)) ThrowNotStored(Quoted(wanted));
    }
    const char* done = options.dryRun ? (old ? "Would replace " : "Would add ") : (old ? "Replaced " : "Added ");
    const Outlook outlook = OutlookOnceStored(wanted, world);
    report.text = screen.Paragraph(done + Quoted(wanted) + was + ": " + Describe(wanted, world.now()) +
                                   Conclusion(outlook, world) + ".");
    AddWarnings(report, screen, WarningsOf(outlook));
    if (options.dryRun) report.text += screen.Paragraph(nothingSent, 0, Style::faint);
    return report;
}

Report DeleteReport(const World& world, const Screen& screen, const Options& options) {
    std::vector<Schedule> goes;
    for (const std::string& name : options.names) {
        const Schedule& found = FindSchedule(world, name, options.app);
        const bool twice =
            std::any_of(goes.begin(), goes.end(), [&](const Schedule& s) { return SameIdentity(s, found); });
        if (!twice) goes.push_back(found);
    }
    Report report{"", Document("delete")};
    report.json["result"] = options.dryRun ? "would delete" : "deleted";
    report.json["schedules"] = Json::array();
    std::vector<Request> requests;
    for (const Schedule& schedule : goes) {
        report.json["schedules"].push_back(ToJson(schedule));
        requests.push_back(DeleteRequest(schedule));
        report.text += screen.Paragraph((options.dryRun ? "Would delete " : "Deleted ") + Quoted(schedule) + ": " +
                                        Describe(schedule, world.now()) + ".");
    }
    if (!options.dryRun) {
        const World after = SendAndLook(world, requests);
        for (const Schedule& schedule : goes)
            if (Find(after, schedule) != nullptr) ThrowNotStored("The deletion of " + Quoted(schedule));
    }
    AddWarnings(report, screen, WarningsOfDelete(goes, world));
    if (options.dryRun) report.text += screen.Paragraph(nothingSent, 0, Style::faint);
    return report;
}

Report ClearReport(const World& world, const Screen& screen, const Options& options) {
    const Target target = FindTarget(world, options);
    const std::string prefix = LScheduleApplicationPrefix(target.bundleId, target.app);
    std::vector<Schedule> goes;
    for (const Schedule& schedule : world.schedules)
        if (KeyOf(schedule).compare(0, prefix.size(), prefix) == 0) goes.push_back(schedule);

    Report report{"", Document("clear")};
    report.json["schedules"] = Json::array();
    std::string list;
    std::vector<std::string> warnings;
    for (const Schedule& schedule : goes) {
        report.json["schedules"].push_back(ToJson(schedule));
        list += "  " + Quoted(schedule) + ", " + Describe(schedule, world.now()) +
                (schedule.appPath != target.app ? ", of " + Printable(schedule.appPath) : "") + '\n';
        if (schedule.appPath != target.app)
            warnings.push_back(Quoted(schedule) + " belongs to " + Printable(schedule.appPath) +
                               ", which begins with the same path: its "
                               "record goes too, and it starts no more once the helper starts again.");
    }
    const std::string what = Count(goes.size(), "schedule") + " of " + Printable(target.app);
    if (goes.empty() || options.dryRun) {
        report.json["result"] = goes.empty() ? "nothing to clear" : "would clear";
        report.json["export"] = Json();
        report.text = goes.empty() ? "There is no schedule of " + Printable(target.app) + ".\n"
                                   : "Would delete " + what + ":\n" + list;
        AddWarnings(report, screen, warnings);
        if (!goes.empty()) report.text += screen.Paragraph(nothingSent, 0, Style::faint);
        return report;
    }
    if (!options.yes && !AskToClear(what, list, options.json))
        return {"Nothing was deleted.\n",
                [] {
                    Json j = Document("clear");
                    j["result"] = "kept";
                    return j;
                }(),
                ExitCode::no};
    // Whatever came while somebody thought about it is in no list and in no export.
    if (!options.yes && Observe().schedules != world.schedules)
        throw Failure{ExitCode::refused, "Nothing was deleted", "The schedules changed while you were asked.",
                      "schedulectl clear, to see them as they are now."};
    const std::string file = options.exportFile.empty() ? DefaultExportPath(world.now()) : options.exportFile;
    WriteExport(ExportDocument(goes), file);
    const World after = SendAndLook(
        world, {Request().Text(kKeyBundleId, target.bundleId).Text(kKeyBundlePath, target.app).Flag(kKeyDeleteAll)});
    for (const Schedule& schedule : goes)
        if (Find(after, schedule) != nullptr) ThrowNotStored("The deletion of " + Quoted(schedule));
    report.json["result"] = "cleared";
    report.json["export"] = file;
    report.text = screen.Paragraph("Deleted " + what + ".") +
                  screen.Paragraph("To bring them back: schedulectl import " + ShellWord(file), 0, Style::faint);
    AddWarnings(report, screen, warnings);
    return report;
}

Report ImportReport(const World& world, const Screen& screen, const Options& options) {
    Report report{"", Document("import")};
    report.json["result"] = options.dryRun ? "would import" : "imported";
    report.json["schedules"] = Json::array();
    std::vector<Schedule> wanted;
    std::vector<Request> requests;
    std::string lines;
    std::vector<std::string> warnings;
    std::set<std::string> keys;
    for (const Schedule& schedule : ReadExport(options.file)) {
        Json json = ToJson(schedule);
        const bool passed = !Repeats(schedule) && schedule.start.seconds <= world.now();
        const char* what = passed                             ? "left out, its moment has passed"
                           : Find(world, schedule) != nullptr ? "replaces"
                                                              : "new";
        json["result"] = what;
        report.json["schedules"].push_back(json);
        lines += "  " + Quoted(schedule) + ", " + Describe(schedule, world.now()) + ": " + what + '\n';
        if (passed) continue;
        CheckBeforeSending(schedule, world);
        if (!keys.insert(KeyOf(schedule)).second)
            throw Failure{ExitCode::refused, "The export holds the record of " + Quoted(schedule) + " twice",
                          "Only one of the two could be stored.", "Take one of them out of the file."};
        for (const std::string& warning : WarningsOf(OutlookOnceStored(schedule, world)))
            warnings.push_back(Quoted(schedule) + ": " + warning);
        wanted.push_back(schedule);
        requests.push_back(AddRequest(schedule));
    }
    if (!options.dryRun && !wanted.empty()) {
        const World after = SendAndLook(world, requests);
        for (const Schedule& schedule : wanted) {
            const Schedule* stored = Find(after, schedule);
            if (stored == nullptr || !(*stored == schedule)) ThrowNotStored(Quoted(schedule));
        }
    }
    report.json["count"] = wanted.size();
    report.text = (options.dryRun ? "Would import " : "Imported ") + Count(wanted.size(), "schedule") + ".\n" + lines;
    AddWarnings(report, screen, warnings);
    if (options.dryRun) report.text += screen.Paragraph(nothingSent, 0, Style::faint);
    return report;
}

}  // namespace schedulectl
