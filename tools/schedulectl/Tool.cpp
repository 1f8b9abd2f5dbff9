#include "tools/schedulectl/Tool.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <exception>

#include "tools/schedulectl/Health.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/Writes.h"

namespace schedulectl {
namespace {

void Print(const std::string& text) {
    (void)fwrite(text.data(), 1, text.size(), stdout);
    (void)fflush(stdout);
}

Report Produce(const Options& options, const Screen& screen) {
    switch (options.command) {  // what needs no look at the store
        case Command::plan:
            return PlanReport(screen, options, time(nullptr));
        case Command::completion: {
            Json json = Document("completion");
            json["script"] = CompletionScript(options.shell);
            return {json["script"].get<std::string>(), json};
        }
        default:
            break;
    }
    const World world = Observe();
    switch (options.command) {  // what has something to say even when the store cannot be read
        case Command::status:
            return StatusReport(world, screen);
        case Command::doctor:
            return DoctorReport(world, screen);
        case Command::ping:
            return PingReport(world, screen, options);
        case Command::idle:
            return IdleReport(world, screen, options);
        case Command::shutdown:
            return ShutdownReport(world, screen, options);
        default:
            break;
    }
    RequireStore(world);
    switch (options.command) {
        case Command::show:
            return ShowReport(world, screen, options);
        case Command::next:
            return NextReport(world, screen, options);
        case Command::week:
            return WeekReport(world, screen);
        case Command::why:
            return WhyReport(world, screen, options);
        case Command::exporting:
            return ExportReport(world, screen, options);
        case Command::add:
            return AddReport(world, screen, options);
        case Command::remove:
            return DeleteReport(world, screen, options);
        case Command::clear:
            return ClearReport(world, screen, options);
        case Command::import:
            return ImportReport(world, screen, options);
        case Command::introduce:
            return IntroduceReport(world, screen, options);
        case Command::names: {
            Report report{"", Document("names")};
            report.json["names"] = Json::array();
            for (const Schedule& schedule : world.schedules) {
                report.json["names"].push_back(schedule.skedName);
                report.text += Printable(schedule.skedName) + '\n';
            }
            return report;
        }
        default:
            return ListReport(world, screen, "list");
    }
}

}  // namespace

int ReportFailure(const Failure& failure, bool json, ColorChoice color, const std::string& command) {
    if (json) {
        Print(Dump(ToJson(failure, command)));
    } else {
        const Screen screen = Screen::Of(STDERR_FILENO, color);
        const std::string end = failure.what.empty() || failure.what.back() == '?' ? "\n" : ".\n";
        const std::string text = screen.Paint(Style::bad, "schedulectl: ") + failure.what + end + "  " +
                                 screen.Paint(Style::faint, "why: ") + failure.why + "\n  " +
                                 screen.Paint(Style::faint, "try: ") + failure.remedy + '\n';
        (void)fwrite(text.data(), 1, text.size(), stderr);
    }
    return static_cast<int>(failure.code);
}

int RunCommand(const Options& options) {
    try {
        if (options.command == Command::watch) return static_cast<int>(Watch(options));
        const Screen screen = Screen::Of(STDOUT_FILENO, options.color);
        const Report report = Produce(options, screen);
        Print(options.json ? Dump(report.json) : report.text);
        return static_cast<int>(report.code);
    } catch (const Failure& failure) {
        return ReportFailure(failure, options.json, options.color, options.commandName);
    } catch (const std::exception& error) {
        const Failure failure{ExitCode::unconfirmed, "Something went wrong that should not", error.what(),
                              "Try again, and look with \"schedulectl doctor\"."};
        return ReportFailure(failure, options.json, options.color, options.commandName);
    }
}

}  // namespace schedulectl
