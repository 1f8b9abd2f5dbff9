// The command line: which command, with which options. One table of commands feeds parsing, help and completion.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/schedulectl/Screen.h"

namespace schedulectl {

enum class Command {
    list,
    show,
    next,
    week,
    plan,
    why,
    exporting,  // look
    add,
    remove,
    clear,
    import,  // change
    status,
    doctor,
    watch,
    ping,
    introduce,
    idle,
    shutdown,  // the helper
    completion,
    names,  // the shell
};

struct Options {
    Command command = Command::list;
    std::string commandName = "list";
    bool json = false;
    ColorChoice color = ColorChoice::automatic;

    std::vector<std::string> names;  // of schedules
    std::string at;                  // WHEN
    bool daily = false;
    std::optional<std::string> weekly;  // DAYS
    std::string app;                    // path of a bundle; empty: found out
    int count = 10;
    std::string zone;   // TZ of `plan`; empty: this one
    std::string armed;  // WHEN of `plan`'s arming; empty: now
    bool dryRun = false;
    bool yes = false;
    bool ifIdle = false;
    std::string file;        // to import; "-" is standard input
    std::string exportFile;  // of clear and export; empty: found out, standard output
    std::string shell;       // of completion

    /// Speaks with the helper, so it needs the message runtime.
    [[nodiscard]] bool needsService() const;
};

/// Parses the command line. Nothing when it asked for help or for the version, which is then in `text`. Throws Failure.
std::optional<Options> ParseCommandLine(int argc, const char* const* argv, std::string& text);

/// The completion script for "bash", "zsh" or "fish"; throws Failure for another shell.
std::string CompletionScript(const std::string& shell);

}  // namespace schedulectl
