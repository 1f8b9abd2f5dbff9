#include "tools/schedulectl/Views.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "app/LRequestKeys.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/Week.h"
#include "tools/schedulectl/When.h"

namespace schedulectl {
namespace {

/// "Orvin" of /opt/Orvin.app.
std::string ApplicationName(const Schedule& schedule) {
    std::string name = schedule.appPath;
    while (name.size() > 1 && name.back() == '/') name.pop_back();
    name = name.substr(name.rfind('/') + 1);
    const bool bundle = name.size() > 4 && name.compare(name.size() - 4, 4, ".app") == 0;
    return Printable(bundle ? name.substr(0, name.size() - 4) : name);
}

/// What was asked for, as short as the start beside it allows: the day is there already.
std::string Asked(const Schedule& schedule, const Outlook& outlook, Moment now) {
    if (Repeats(schedule)) return FormatAskedFor(schedule, now);
    const Moment asked = AskedMoment(schedule);
    const std::string clock = FormatClock(SecondOfDay(asked));
    const bool sameDay = outlook.next && FormatDay(asked, now) == FormatDay(outlook.next->likely, now);
    constexpr size_t weekday = 4;  // "Mon "
    return sameDay ? clock : FormatDay(asked, now).substr(weekday) + ' ' + clock;
}

/// "Orvin 2.13", "Orvin (gone)".
std::string ApplicationAndVersion(const Schedule& schedule, const Application& application) {
    const std::string name = ApplicationName(schedule);
    if (!application.there) return name + " (gone)";
    return name + ' ' + (application.version.empty() ? "(no version)" : application.version);
}

/// One line above a list: the day, the clock, and the helper's state where it matters.
std::string Banner(const World& world, const Screen& screen) {
    const Moment now = world.now();
    const std::string clock = FormatDay(now, now) + ' ' + FormatClock(SecondOfDay(now) / 60 * 60) + ' ' + ZoneName(now);
    const char* dot = screen.Glyph(" \u00b7 ", ", ");
    const auto& since = world.situation.helperSince;
    if (world.situation.helperRuns) {
        const std::string age = since ? " for " + FormatSpan(std::max<Moment>(now - *since, 0)) : "";
        std::string banner = screen.Paragraph(clock + dot + "helper running" + age, 0, Style::faint);
        constexpr Moment noticeable = 60;
        if (world.situation.sleptAtMost >= noticeable)
            banner += screen.Paragraph("The machine has slept: starts may be up to " +
                                           FormatSpan(world.situation.sleptAtMost) +
                                           " late until the helper starts again; \"schedulectl doctor\" tells.",
                                       0, Style::warning);
        return banner + '\n';
    }
    return screen.Paragraph(clock, 0, Style::faint) +
           screen.Paragraph("No helper is running, so nothing starts. Try: systemctl --user start schedulehelper", 0,
                            Style::bad) +
           '\n';
}

struct Listed {
    const Schedule* schedule;
    Outlook outlook;
};

/// Soonest first; those that never start last, in the store's order.
std::vector<Listed> InOrderOfStart(const World& world) {
    std::vector<Listed> list;
    for (const Schedule& schedule : world.schedules) list.push_back({&schedule, world.OutlookOf(schedule)});
    const auto moment = [](const Listed& listed) {
        return listed.outlook.next ? listed.outlook.next->likely : std::numeric_limits<Moment>::max();
    };
    std::stable_sort(list.begin(), list.end(), [&](const Listed& a, const Listed& b) { return moment(a) < moment(b); });
    return list;
}

std::string ListFooter(const std::vector<Listed>& list, const Screen& screen) {
    const auto never = static_cast<size_t>(
        std::count_if(list.begin(), list.end(), [](const Listed& listed) { return !listed.outlook.next; }));
    std::string text = Count(list.size(), "schedule");
    if (never > 0)
        text += never == list.size() && never > 1
                    ? ", none of them ever starts"
                    : ", " + std::to_string(never) + " of them never " + (never == 1 ? "starts" : "start");
    return screen.Paragraph(text + ". Starts come 10 seconds before the time asked for.", 0, Style::faint);
}

std::string NoSchedules(const Screen& screen) {
    return screen.Paragraph("No schedules yet.") +
           screen.Paragraph("Try: schedulectl add Standup --at 09:00 --weekly mon-fri", 0, Style::faint);
}

std::string Field(const Screen& screen, const std::string& name, const std::string& value, Style style = Style::plain) {
    constexpr size_t indent = 14;
    return screen.Beside("  " + screen.Paint(Style::faint, Pad(name, indent - 2)), indent, value, style);
}

Table StartTable(const std::string& first) {
    return Table({{first}, {"IN", true}, {"NAME", false, 8}, {"ASKED FOR"}});
}

/// "1 h later than asked for".
std::string Displaced(Moment moved) {
    return FormatSpan(moved < 0 ? -moved : moved) + (moved < 0 ? " earlier" : " later") + " than asked for";
}

std::vector<std::string> MovedNote(const Start& start) {
    const Moment moved = start.moved();
    if (moved == 0) return {};
    return {"clocks change: " + Displaced(moved) + ", until the helper starts again"};
}

struct Step {
    std::string question;
    bool answer;
    bool wanted;  // the answer with which the start goes on
    std::string detail;
};

std::vector<Step> StepsOf(const Schedule& schedule, const World& world) {
    const Application& application = world.ApplicationOf(schedule);
    const Situation& situation = world.situation;
    const std::vector<Start> coming = ComingStarts(schedule, situation.armedAt(), situation.now, 1);
    const bool armed = situation.helperRuns && !coming.empty() && application.there;
    std::string next = coming.empty() ? world.OutlookOf(schedule).never
                                      : "due " + FormatMoment(coming[0].likely, situation.now) + ", " +
                                            FormatRelative(coming[0].likely, situation.now);
    if (!situation.helperRuns) next = coming.empty() ? "no helper runs, and " + next : "no helper runs";
    const std::string version = application.version.empty() ? "it has none" : "it has " + application.version;
    return {{"armed", armed, true, next},
            {"bundle there", application.there, true, Printable(schedule.appPath)},
            {"already running", application.running, false,
             application.running ? "so nothing is started" : "nothing runs from it"},
            {std::string("version ") + kMainAppVersion, application.fits, true, version}};
}

}  // namespace

std::string Describe(const Schedule& schedule, Moment now) {
    if (!Repeats(schedule)) return "once, " + FormatAsked(AskedMoment(schedule), now);
    return FormatRepetition(schedule) + " at " + FormatAskedFor(schedule, now);
}

Report ListReport(const World& world, const Screen& screen, const std::string& command) {
    Report report{Banner(world, screen), Document(command)};
    report.json["helper"] = HelperToJson(world);
    report.json["schedules"] = Json::array();
    Table table(
        {{"NEXT START"}, {"IN", true}, {"NAME", false, 8}, {"REPEATS"}, {"ASKED FOR"}, {"APPLICATION", false, 10}});
    const std::vector<Listed> list = InOrderOfStart(world);
    const Moment now = world.now();
    for (const auto& [schedule, outlook] : list) {
        report.json["schedules"].push_back(WithOutlook(*schedule, outlook, world));
        const Application& application = world.ApplicationOf(*schedule);
        std::vector<std::string> notes = outlook.warnings;
        if (!outlook.next) notes.insert(notes.begin(), "never: " + outlook.never);
        const std::string start = outlook.next ? FormatMoment(outlook.next->likely, now) : "never";
        const std::string span = outlook.next ? FormatSpan(outlook.next->likely - now) : "";
        table.Add({{start, outlook.next ? Style::plain : Style::bad},
                   {span},
                   {Printable(schedule->skedName), Style::strong},
                   {FormatRepetition(*schedule)},
                   {Asked(*schedule, outlook, now)},
                   {ApplicationAndVersion(*schedule, application), application.fits ? Style::plain : Style::bad}},
                  notes);
    }
    report.text += list.empty() ? NoSchedules(screen) : table.Render(screen) + '\n' + ListFooter(list, screen);
    return report;
}

Report ShowReport(const World& world, const Screen& screen, const Options& options) {
    const Schedule& schedule = FindSchedule(world, options.names.at(0), options.app);
    const Outlook outlook = world.OutlookOf(schedule);
    const Application& application = world.ApplicationOf(schedule);
    const Moment now = world.now();
    const auto count = static_cast<size_t>(options.count);
    const auto coming =
        outlook.next ? ComingStarts(schedule, world.situation.armedAt(), now, count) : std::vector<Start>();

    Report report{"", Document("show")};
    report.json["helper"] = HelperToJson(world);
    report.json["schedule"] = WithOutlook(schedule, outlook, world);
    report.json["coming"] = Json::array();
    for (const Start& start : coming) report.json["coming"].push_back(ToJson(start));

    std::string& text = report.text;
    text = screen.Paint(Style::strong, Printable(schedule.skedName)) + '\n';
    text += Field(screen, "asked for", Describe(schedule, now));
    if (outlook.next)
        text += Field(screen, "next start",
                      FormatMoment(outlook.next->likely, now) + ", " + FormatRelative(outlook.next->likely, now),
                      Style::good);
    else
        text += Field(screen, "next start", "never: " + outlook.never, Style::bad);
    const std::string version = application.version.empty() ? "" : ", version " + application.version;
    text += Field(screen, "application", Printable(schedule.appPath) + (application.there ? version : ", gone"));
    text += Field(screen, "identifier", Printable(schedule.bundleId));
    text += Field(screen, "running", application.running ? "yes, so a start would do nothing" : "no");
    if (!world.situation.helperRuns)
        text += Field(screen, "helper", "not running: nothing starts until it does", Style::bad);
    for (const std::string& warning : outlook.warnings) text += screen.Paragraph(warning, 2, Style::warning);
    if (coming.size() > 1) text += '\n';
    for (size_t i = 0; coming.size() > 1 && i < coming.size(); ++i) {
        const Moment moved = coming[i].moved();
        text += Field(screen, i == 0 ? "coming" : "",
                      FormatMoment(coming[i].likely, now) + (moved == 0 ? "" : ", " + Displaced(moved)),
                      moved == 0 ? Style::plain : Style::warning);
    }
    return report;
}

Report NextReport(const World& world, const Screen& screen, const Options& options) {
    const Moment now = world.now();
    Report report{"", Document("next")};
    report.json["helper"] = HelperToJson(world);
    report.json["starts"] = Json::array();
    Table table = StartTable("START");
    const auto starts =
        ComingStartsOfAll(world, static_cast<size_t>(options.count), std::numeric_limits<Moment>::max());
    for (const auto& [schedule, start] : starts) {
        Json json = ToJson(start);
        json["name"] = schedule->skedName;
        json["app"] = schedule->appPath;
        report.json["starts"].push_back(json);
        table.Add({{FormatMoment(start.likely, now)},
                   {FormatSpan(start.likely - now)},
                   {Printable(schedule->skedName), Style::strong},
                   {FormatAsked(start.asked, now)}},
                  MovedNote(start));
    }
    if (!world.situation.helperRuns) report.text = Banner(world, screen);
    report.text += starts.empty() ? screen.Paragraph("Nothing is going to start.") : table.Render(screen);
    return report;
}

Report WeekReport(const World& world, const Screen& screen) {
    const Moment now = world.now();
    const Civil today = CivilAt(now);
    const Civil lastDay = PlusDays(today, 7);
    const Moment end = MomentAt({lastDay.year, lastDay.month, lastDay.day, 0, 0, 0, 0}).value_or(now + weekSeconds);
    const auto starts = ComingStartsOfAll(world, std::numeric_limits<size_t>::max(), end);
    Report report{Banner(world, screen), Document("week")};
    report.json["helper"] = HelperToJson(world);
    report.json["until"] = ToJson(end);
    report.json["starts"] = Json::array();
    std::vector<WeekLine> lines;
    std::unordered_map<const Schedule*, size_t> places;
    for (const auto& [schedule, start] : starts) {
        Json json = ToJson(start);
        json["name"] = schedule->skedName;
        json["app"] = schedule->appPath;
        report.json["starts"].push_back(json);
        const auto [place, isNew] = places.emplace(schedule, lines.size());
        if (isNew) lines.push_back({Printable(schedule->skedName), Describe(*schedule, now), {}});
        lines[place->second].starts.push_back(start.likely);
    }
    report.text += RenderWeek(lines, now, screen);
    const size_t others = world.schedules.size() - lines.size();
    if (others > 0)
        report.text += '\n' + screen.Paragraph(Count(others, "schedule") + (others == 1 ? " does" : " do") +
                                                   " not start in these seven days.",
                                               0, Style::faint);
    return report;
}

Report WhyReport(const World& world, const Screen& screen, const Options& options) {
    const Schedule& schedule = FindSchedule(world, options.names.at(0), options.app);
    const std::vector<Step> steps = StepsOf(schedule, world);
    const Outlook outlook = world.OutlookOf(schedule);
    Report report{"", Document("why")};
    const auto stop = std::find_if(steps.begin(), steps.end(), [](const Step& s) { return s.answer != s.wanted; });
    const bool yes = stop == steps.end();
    report.code = yes ? ExitCode::done : ExitCode::no;
    report.json["schedule"] = WithOutlook(schedule, outlook, world);
    report.json["answer"] = yes;
    report.json["steps"] = Json::array();
    report.text =
        screen.Paragraph(Printable(schedule.skedName) + ", " + Describe(schedule, world.now()), 0, Style::strong) +
        '\n';
    for (const Step& step : steps) {
        const bool good = step.answer == step.wanted;
        report.json["steps"].push_back(
            {{"question", step.question}, {"answer", step.answer}, {"goesOn", good}, {"detail", step.detail}});
        const std::string answer = screen.Paint(good ? Style::good : Style::bad, Pad(step.answer ? "yes" : "no", 5));
        report.text += screen.Beside("  " + answer + Pad(step.question, 17), 24, step.detail);
    }
    report.text += '\n';
    if (yes)
        report.text += screen.Beside(screen.Paint(Style::good, "Yes: "), 5,
                                     "when it falls due, the helper starts " + Printable(schedule.appPath) + ".");
    else
        report.text += screen.Beside(screen.Paint(Style::bad, "No: "), 4,
                                     "nothing would be started; \"" + stop->question + "\" is answered with " +
                                         (stop->answer ? "yes" : "no") + ".");
    for (const std::string& warning : outlook.warnings) report.text += screen.Paragraph(warning, 0, Style::warning);
    return report;
}

}  // namespace schedulectl
