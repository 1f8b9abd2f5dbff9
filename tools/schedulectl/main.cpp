// schedulectl: see and manage the schedules that start Orvin.
#include <dispatch/dispatch.h>
#include <platform_ending.h>
#include <wchar.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <thread>

#include "tools/schedulectl/Tool.h"

namespace {

/// Names are UTF-8 whatever the terminal shows, so the widths of characters come from a locale that knows all of them.
void UseLocale() {
    (void)setlocale(LC_CTYPE, "C.UTF-8");
}

bool AsksForJson(int argc, char** argv) {
    for (int i = 1; i < argc && strcmp(argv[i], "--") != 0; ++i)
        if (strcmp(argv[i], "--json") == 0) return true;
    return false;
}

/// Replies arrive on the main queue, so this thread serves it while another one asks and waits.
[[noreturn]] void RunBesideMainQueue(const schedulectl::Options& options) {
    std::thread([options] { platform_exit(schedulectl::RunCommand(options)); }).detach();
    dispatch_main();
}

}  // namespace

int main(int argc, char** argv) {
    UseLocale();
    std::string text;
    try {
        const auto options = schedulectl::ParseCommandLine(argc, argv, text);
        if (!options) return fputs(text.c_str(), stdout) < 0 || fflush(stdout) != 0 ? 1 : 0;
        if (options->needsService()) RunBesideMainQueue(*options);
        return schedulectl::RunCommand(*options);
    } catch (const schedulectl::Failure& failure) {
        return schedulectl::ReportFailure(failure, AsksForJson(argc, argv), schedulectl::ColorChoice::automatic, "");
    }
}
