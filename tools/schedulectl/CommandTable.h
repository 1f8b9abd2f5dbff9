// The commands of the tool in one table, which parsing, help and shell completion share.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/schedulectl/Options.h"

namespace schedulectl {

struct CommandRow {
    Command command;
    const char* name;
    const char* group;    // heading in the help; empty: not shown
    const char* summary;  // one line, no full stop
    /// What it takes: n one name, N names, f file, s shell, w when and repetition, c count, z zone, a application,
    /// d dry run, y yes, i if idle, x export file.
    const char* takes;
    bool service;  // it speaks with the helper
    std::vector<const char*> examples;
    const char* note;  // what it tells of the system's ways; may be empty
};

const std::vector<CommandRow>& CommandTable();

/// A command as a shell completes it; the last one, without a name, holds what every command takes.
struct CompletedCommand {
    std::string name;
    std::string summary;
    std::vector<std::pair<std::string, std::string>> options;  // name without dashes, description
    bool takesNames = false;
};

std::vector<CompletedCommand> CompletedCommands();

}  // namespace schedulectl
