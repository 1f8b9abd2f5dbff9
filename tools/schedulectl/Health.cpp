#include "tools/schedulectl/Health.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "app/LRequestKeys.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/Writes.h"

namespace schedulectl {
namespace {

using Level = Finding::Level;

Json FindingsToJson(const std::vector<Finding>& findings) {
    Json json = Json::array();
    for (const Finding& finding : findings) {
        const char* level = finding.level == Level::good ? "good" : finding.level == Level::note ? "note" : "bad";
        json.push_back({{"check", finding.check},
                        {"level", level},
                        {"what", finding.what},
                        {"why", finding.why},
                        {"try", finding.remedy}});
    }
    return json;
}

std::string FindingText(const Finding& finding, const Screen& screen) {
    const bool good = finding.level == Level::good;
    const Style style = good ? Style::good : finding.level == Level::note ? Style::warning : Style::bad;
    const char* mark = good ? "ok" : finding.level == Level::note ? "note" : "mend";
    constexpr size_t indent = 20;
    const std::string head =
        "  " + screen.Paint(style, Pad(mark, 5)) + screen.Paint(Style::faint, Pad(finding.check, 12)) + ' ';
    std::string text = screen.Beside(head, indent, finding.what, good ? Style::plain : Style::strong);
    if (!finding.why.empty()) text += screen.Paragraph("why: " + finding.why, indent);
    if (!finding.remedy.empty()) text += screen.Paragraph("try: " + finding.remedy, indent);
    return text;
}

std::string Line(const Screen& screen, const char* name, const std::string& value, Style style = Style::plain) {
    constexpr size_t indent = 12;
    return screen.Beside(screen.Paint(Style::faint, Pad(name, indent)), indent, value, style);
}

std::string StatusLines(const World& world, const ServiceState& service, const Screen& screen) {
    const Moment now = world.now();
    const bool runs = world.situation.helperRuns, answers = service.answer == Service::Answer::yes;
    const auto& since = world.situation.helperSince;
    std::string helper = runs ? "running" : "not running: nothing starts";
    if (world.helperPid > 0) helper += ", process " + std::to_string(world.helperPid);
    if (since) helper += ", since " + FormatMoment(*since, now) + " (" + FormatSpan(now - *since) + ")";
    std::string text = Line(screen, "helper", helper, runs ? Style::good : Style::bad);
    const bool silent = service.answer == Service::Answer::silence;
    text += Line(screen, "service",
                 answers  ? "offered, and it answers"
                 : silent ? "offered, but it does not answer"
                          : "not offered",
                 answers ? Style::good : Style::bad);

    const auto starting = std::count_if(world.schedules.begin(), world.schedules.end(), [&](const Schedule& schedule) {
        return world.OutlookOf(schedule).next.has_value();
    });
    const auto never = static_cast<size_t>(std::ptrdiff_t(world.schedules.size()) - starting);
    text += Line(
        screen, "schedules",
        std::to_string(world.schedules.size()) + " stored" +
            (never > 0 ? ", " + std::to_string(never) + " of them never " + (never == 1 ? "starts" : "start") : ""));
    const auto next = ComingStartsOfAll(world, 1, std::numeric_limits<Moment>::max());
    if (!next.empty())
        text += Line(screen, "next",
                     Printable(next[0].schedule->skedName) + ", " + FormatMoment(next[0].start.likely, now) + " (" +
                         FormatRelative(next[0].start.likely, now) + ")");
    const auto orvin = RunningMainApplication();
    text += Line(
        screen, kMainAppName,
        orvin ? "running from " + Printable(orvin->path) + ", process " + std::to_string(orvin->pid) : "not running");
    const std::string state = world.store.problem ? "unreadable: " : world.store.exists ? "" : "none yet: ";
    return text +
           Line(screen, "store", state + Printable(world.store.path), world.store.problem ? Style::bad : Style::plain);
}

void CountAsDryRun(Report& report, const Screen& screen, const char* what) {
    report.json["result"] = "would ask";
    report.text =
        screen.Paragraph(std::string("Would ") + what + ".") + screen.Paragraph("Nothing was sent.", 0, Style::faint);
}

/// Throws unless the helper answered yes or no.
bool YesOrNo(Service::Answer answer, const World& world) {
    if (answer == Service::Answer::yes || answer == Service::Answer::no) return answer == Service::Answer::yes;
    if (answer == Service::Answer::gone) ThrowNoService(world);
    throw Silence();
}

}  // namespace

Report StatusReport(const World& world, const Screen& screen) {
    const ServiceState service = AskService();
    Report report{StatusLines(world, service, screen), Document("status")};
    const bool answers = service.answer == Service::Answer::yes;
    report.code = answers ? ExitCode::done : ExitCode::helperDown;
    report.json["helper"] = HelperToJson(world);
    report.json["service"] = answers;
    report.json["schedules"] = world.schedules.size();
    const auto next = ComingStartsOfAll(world, 1, std::numeric_limits<Moment>::max());
    report.json["next"] = next.empty() ? Json() : ToJson(next[0].start);
    const auto orvin = RunningMainApplication();
    report.json["application"] = orvin ? Json({{"app", orvin->path}, {"pid", orvin->pid}}) : Json();
    report.json["store"] = {
        {"path", world.store.path}, {"exists", world.store.exists}, {"readable", !world.store.problem}};
    if (answers) return report;
    try {
        if (service.answer == Service::Answer::silence) throw Silence();
        ThrowNoService(world);
    } catch (const Failure& failure) {
        report.code = failure.code;
        report.json["problem"] = {{"what", failure.what}, {"why", failure.why}, {"try", failure.remedy}};
        report.text += '\n' + screen.Paragraph(failure.what + ".", 0, Style::strong) +
                       screen.Paragraph("why: " + failure.why, 2) + screen.Paragraph("try: " + failure.remedy, 2);
    }
    return report;
}

Report DoctorReport(const World& world, const Screen& screen) {
    const std::vector<Finding> findings = Examine(world, AskService(), AskServiceManager());
    const auto bad = static_cast<size_t>(std::count_if(
        findings.begin(), findings.end(), [](const Finding& finding) { return finding.level == Level::bad; }));
    Report report{"", Document("doctor"), bad == 0 ? ExitCode::done : ExitCode::no};
    report.json["healthy"] = bad == 0;
    report.json["findings"] = FindingsToJson(findings);
    for (const Finding& finding : findings) report.text += FindingText(finding, screen);
    report.text += '\n' +
                   (bad == 0 ? screen.Paint(Style::good, "Nothing to mend.")
                             : screen.Paint(Style::bad, Count(bad, "thing") + " to mend.")) +
                   '\n';
    return report;
}

Report PingReport(const World& world, const Screen& screen, const Options& options) {
    Report report{"", Document("ping")};
    if (options.dryRun) {
        CountAsDryRun(report, screen, "send the connection test");
        return report;
    }
    const ServiceState service = AskService();
    report.json["answer"] = YesOrNo(service.answer, world);
    report.json["milliseconds"] = std::round(service.milliseconds * 1000) / 1000;
    char text[64];
    (void)snprintf(text, sizeof text, "The helper answers, after %.2f ms.\n", service.milliseconds);
    report.text = text;
    return report;
}

Report IntroduceReport(const World& world, const Screen& screen, const Options& options) {
    const Target target = FindTarget(world, options);
    Report report{"", Document("introduce")};
    report.json["app"] = target.app;
    report.json["bundleId"] = target.bundleId;
    if (options.dryRun) {
        CountAsDryRun(report, screen, "introduce this tool");
        return report;
    }
    Service service;
    const Request request =
        Request().Text(kKeyBundleId, target.bundleId).Text(kKeyBundlePath, target.app).Flag(kKeyNewConnection);
    const bool yes = YesOrNo(service.AskOrSilence(request, kReplyNewConnection), world);
    report.code = yes ? ExitCode::done : ExitCode::no;
    report.json["answer"] = yes;
    report.text = screen.Paragraph(yes ? "Yes: the helper takes " + Printable(target.app) + " for " + kMainAppName + "."
                                       : "No: the helper expects a bundle named " + std::string(kMainAppName) +
                                             ".app with the identifier " + kMainAppBundleId + ", and this is " +
                                             Printable(target.app) + " with " + Printable(target.bundleId) + ".");
    return report;
}

Report IdleReport(const World& world, const Screen& screen, const Options& options) {
    Report report{"", Document("idle")};
    if (options.dryRun) {
        CountAsDryRun(report, screen, "ask whether the helper holds no schedule");
        return report;
    }
    Service service;
    const bool idle = YesOrNo(service.Ask(Request().Flag(kKeyShutdownQuestion), kReplyShutdownQuestion), world);
    report.code = idle ? ExitCode::done : ExitCode::no;
    report.json["answer"] = idle;
    report.text = idle ? "Yes: the helper holds no schedule.\n"
                       : "No: the helper holds schedules, perhaps some that never start.\n";
    return report;
}

Report ShutdownReport(const World& world, const Screen& screen, const Options& options) {
    Report report{"", Document("shutdown")};
    if (options.dryRun) {
        report.json["result"] = "would end";
        report.text = screen.Paragraph(options.ifIdle ? "Would end the helper if it holds no schedule."
                                                      : "Would end the helper.") +
                      screen.Paragraph("Nothing was sent.", 0, Style::faint);
        return report;
    }
    Service service;
    const bool idle = YesOrNo(
        options.ifIdle ? service.Ask(Request().Flag(kKeyShutdownQuestion), kReplyShutdownQuestion) : service.Test(),
        world);
    if (!idle)
        return {"Not ended: the helper holds schedules.\n",
                [] {
                    Json json = Document("shutdown");
                    json["result"] = "kept";
                    return json;
                }(),
                ExitCode::no};
    service.Send(Request().Flag(kKeyShutdown));
    if (!service.WaitUntilGone())
        throw Failure{ExitCode::unconfirmed, "The helper was asked to end and is still there",
                      "It did not close the connection within 5 s.", "systemctl --user stop schedulehelper"};
    report.json["result"] = "ended";
    report.text = "The helper has ended. Stored schedules stay.\n";
    return report;
}

}  // namespace schedulectl
