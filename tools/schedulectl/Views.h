// The commands that only look: each takes what was observed and gives its text or its JSON document.
#pragma once

#include <string>

#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Json.h"
#include "tools/schedulectl/Options.h"
#include "tools/schedulectl/Screen.h"
#include "tools/schedulectl/World.h"

namespace schedulectl {

/// What a command says, in both forms, and how it ends.
struct Report {
    std::string text;
    Json json;
    ExitCode code = ExitCode::done;
};

Report ListReport(const World& world, const Screen& screen, const std::string& command);
Report ShowReport(const World& world, const Screen& screen, const Options& options);
Report NextReport(const World& world, const Screen& screen, const Options& options);
Report WeekReport(const World& world, const Screen& screen);
Report WhyReport(const World& world, const Screen& screen, const Options& options);
/// Sets TZ for the rest of the process when a zone is asked for.
Report PlanReport(const Screen& screen, const Options& options, Moment now);
Json ExportDocument(const std::vector<Schedule>& schedules);
/// Throws Failure (refused) when `path` cannot be written.
void WriteExport(const Json& document, const std::string& path);
Report ExportReport(const World& world, const Screen& screen, const Options& options);

/// "Evening run: daily at 17:30", for messages about one schedule.
std::string Describe(const Schedule& schedule, Moment now);

}  // namespace schedulectl
