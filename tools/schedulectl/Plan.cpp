// `plan`, the calculator, and `export`.
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <cstdlib>
#include <fstream>

#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/Views.h"
#include "tools/schedulectl/When.h"
#include "tools/schedulectl/Writes.h"

namespace schedulectl {
namespace {

/// The C library takes a zone that it does not know for UTC without a word, so the zone's file is looked for first.
void UseZone(const std::string& zone) {
    const char* folder = getenv("TZDIR");
    const std::string path = (folder != nullptr ? folder : "/usr/share/zoneinfo") + ("/" + zone);
    struct stat status {};
    const bool safe = zone.find("..") == std::string::npos && zone[0] != '/';
    if (!safe || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        throw Failure{ExitCode::usage, "\"" + Printable(zone) + "\" is no time zone that this system knows",
                      "There is no " + Printable(path) + ".", "Write it like Europe/Berlin or UTC."};
    (void)setenv("TZ", zone.c_str(), 1);
    tzset();
}

Schedule PlannedSchedule(const Options& options, Moment armed) {
    Schedule schedule;
    schedule.skedName = "plan";
    schedule.daily = options.daily;
    schedule.weekly = options.weekly.has_value();
    if (options.weekly) schedule.weekDays.mask = ParseDays(*options.weekly);
    schedule.start.seconds = EarlyStart(ParseWhen(options.at, armed).moment);
    return schedule;
}

void AddWarning(Report& report, const Screen& screen, const std::string& warning) {
    report.json["warnings"].push_back(warning);
    report.text += screen.Paragraph(warning, 0, Style::warning);
}

}  // namespace

Report PlanReport(const Screen& screen, const Options& options, Moment now) {
    if (!options.zone.empty()) UseZone(options.zone);
    const Moment armed = options.armed.empty() ? now : ParseWhen(options.armed, now).moment;
    const Schedule schedule = PlannedSchedule(options, armed);
    const auto starts = ComingStarts(schedule, armed, armed, static_cast<size_t>(options.count));
    const std::string zone = options.zone.empty() ? ZoneName(armed) : options.zone;

    Report report{"", Document("plan")};
    report.json["zone"] = zone;
    report.json["armed"] = ToJson(armed);
    report.json["starts"] = Json::array();
    report.json["warnings"] = Json::array();
    const std::string stored = options.armed.empty() ? "" : ", stored " + FormatMoment(armed, now);
    report.text = screen.Paragraph(Describe(schedule, armed) + stored + ", " + zone, 0, Style::strong) + '\n';
    Table table({{"START"}, {"IN", true}, {"ASKED FOR"}, {""}});
    bool moved = false;
    for (const Start& start : starts) {
        report.json["starts"].push_back(ToJson(start));
        moved = moved || start.moved() != 0;
        const std::string note =
            start.moved() == 0 ? "" : FormatSpan(std::abs(start.moved())) + (start.moved() < 0 ? " early" : " late");
        table.Add({{FormatMoment(start.likely, now)},
                   {FormatSpan(start.likely - armed)},
                   {FormatAsked(start.asked, now)},
                   {note, Style::warning}});
    }
    if (!starts.empty()) report.text += table.Render(screen) + '\n';
    if (starts.empty())
        AddWarning(report, screen,
                   "It never starts: the moment, early by 10 seconds, is not after the time of storing.");
    if (moved)
        AddWarning(report, screen,
                   "Clocks change meanwhile and the interval is fixed, so these starts are moved until "
                   "the helper starts again or the schedule is stored again.");
    if (StartsADayLate(schedule))
        AddWarning(report, screen,
                   "Starts almost a day late: early by ten seconds, it has the time of day of the day "
                   "before but keeps its weekday. Ask for 00:00:10 instead.");
    if (!starts.empty())
        report.text += screen.Paragraph("Starts come 10 seconds before the time asked for.", 0, Style::faint);
    report.code = starts.empty() ? ExitCode::no : ExitCode::done;
    return report;
}

Json ExportDocument(const std::vector<Schedule>& schedules) {
    Json document = Document("export");
    document["schedules"] = Json::array();
    for (const Schedule& schedule : schedules) document["schedules"].push_back(ToJson(schedule));
    return document;
}

Report ExportReport(const World& world, const Screen& screen, const Options& options) {
    const Json document = ExportDocument(world.schedules);
    if (options.exportFile.empty())
        return {document.dump(2, ' ', false, Json::error_handler_t::replace) + '\n', document};
    WriteExport(document, options.exportFile);
    Json json = Document("export");
    json["file"] = options.exportFile;
    json["schedules"] = document["schedules"];
    return {screen.Paragraph("Wrote " + Count(world.schedules.size(), "schedule") + " to " +
                             Printable(options.exportFile) + "."),
            json};
}

void WriteExport(const Json& document, const std::string& path) {
    std::ofstream file(path, std::ios::trunc);
    file << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    file.close();
    if (!file)
        throw Failure{ExitCode::refused, "The export could not be written",
                      "Nothing can be written to " + Printable(path) + ".", "Name another file with -o."};
}

}  // namespace schedulectl
