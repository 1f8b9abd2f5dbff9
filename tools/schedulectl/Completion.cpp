#include "tools/schedulectl/CommandTable.h"
#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

std::string Words(const std::vector<std::pair<std::string, std::string>>& options) {
    std::string text;
    for (const auto& [name, description] : options) text += (text.empty() ? "--" : " --") + name;
    return text;
}

/// `text` inside single quotes of a shell, whatever it holds.
std::string Quote(const std::string& text) {
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string Bash(const std::vector<CompletedCommand>& commands) {
    std::string words, options, named;
    for (const CompletedCommand& command : commands) {
        if (command.name.empty()) continue;
        words += (words.empty() ? "" : " ") + command.name;
        if (command.takesNames) named += (named.empty() ? "" : "|") + command.name;
        options += "        " + command.name + ") options=\"" + Words(command.options) + "\" ;;\n";
    }
    return "# bash completion for schedulectl\n"
           "_schedulectl() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command= options= word\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        [[ $word == -* ]] || { command=$word; break; }\n"
           "    done\n"
           "    case $previous in\n"
           "        --app) mapfile -t COMPREPLY < <(compgen -d -- \"$current\"); return ;;\n"
           "        --color) mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- \"$current\"); return ;;\n"
           "        --weekly) mapfile -t COMPREPLY < <(compgen -W 'mon-fri sat,sun weekdays weekend' -- \"$current\"); "
           "return ;;\n"
           "    esac\n"
           "    case $command in\n" +
           options + "        '') options=\"" + words +
           "\" ;;\n"
           "    esac\n"
           "    if [[ $current == -* || -z $command ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$options " +
           Words(commands.back().options) +
           "\" -- \"$current\"); return\n"
           "    fi\n"
           "    case $command in\n"
           "        " +
           named +
           ")\n"
           "            local IFS=$'\\n' name quoted\n"
           "            while read -r name; do\n"
           "                printf -v quoted %q \"$name\"\n"
           "                case $current in\n"
           "                    [\\'\\\"]*) [[ $name == \"${current:1}\"* ]] && COMPREPLY+=(\"$name\") ;;\n"
           "                    *) [[ $quoted == \"$current\"* ]] && COMPREPLY+=(\"$quoted\") ;;\n"
           "                esac\n"
           "            done < <(schedulectl names 2>/dev/null) ;;\n"
           "        import) mapfile -t COMPREPLY < <(compgen -f -- \"$current\") ;;\n"
           "        completion) mapfile -t COMPREPLY < <(compgen -W 'bash zsh fish' -- \"$current\") ;;\n"
           "    esac\n"
           "}\n"
           "complete -F _schedulectl schedulectl\n";
}

std::string ZshArgument(const std::string& option, const std::string& description) {
    std::string action;
    if (option == "app") action = ":path:_files -/";
    if (option == "at" || option == "armed") action = ":when:";
    if (option == "weekly") action = ":days:(mon-fri sat,sun weekdays weekend)";
    if (option == "tz") action = ":zone:";
    if (option == "export") action = ":file:_files";
    if (option == "color") action = ":when:(auto always never)";
    std::string safe;
    for (const char c : description) safe += (c == ':' || c == '[' || c == ']' ? std::string("\\") : "") + c;
    return Quote("--" + option + "[" + safe + "]" + action);
}

std::string Zsh(const std::vector<CompletedCommand>& commands) {
    std::string list, cases, common;
    for (const auto& [name, description] : commands.back().options) common += " " + ZshArgument(name, description);
    for (const CompletedCommand& command : commands) {
        if (command.name.empty()) continue;
        list += "        " + Quote(command.name + ":" + command.summary) + "\n";
        cases += "        " + command.name + ") _arguments" + common;
        for (const auto& [name, description] : command.options)
            if (name != "help") cases += " " + ZshArgument(name, description);
        if (command.takesNames)
            cases += command.name == "delete" ? " '*:schedule:_schedulectl_names'" : " '1:schedule:_schedulectl_names'";
        if (command.name == "import") cases += " '1:file:_files'";
        if (command.name == "completion") cases += " '1:shell:(bash zsh fish)'";
        cases += " ;;\n";
    }
    return "#compdef schedulectl\n"
           "_schedulectl_names() {\n"
           "    local -a names\n"
           "    names=(\"${(@f)$(schedulectl names 2>/dev/null)}\")\n"
           "    compadd -a names\n"
           "}\n"
           "_schedulectl() {\n"
           "    local -a commands\n"
           "    commands=(\n" +
           list +
           "    )\n"
           "    if (( CURRENT == 2 )); then\n"
           "        if [[ $PREFIX == -* ]]; then _arguments" +
           common +
           "; else _describe command commands; fi\n"
           "        return\n"
           "    fi\n"
           "    local command=${words[2]}\n"
           "    shift words\n"
           "    (( CURRENT-- ))\n"
           "    case $command in\n" +
           cases +
           "    esac\n"
           "}\n"
           "if [[ $funcstack[1] == _schedulectl ]]; then _schedulectl \"$@\"; else compdef _schedulectl schedulectl; "
           "fi\n";
}

std::string Fish(const std::vector<CompletedCommand>& commands) {
    std::string text = "# fish completion for schedulectl\ncomplete -c schedulectl -f\n";
    for (const CompletedCommand& command : commands) {
        const std::string within = Quote("__fish_seen_subcommand_from " + command.name);
        const std::string condition = command.name.empty() ? "" : " -n " + within;
        if (!command.name.empty())
            text += "complete -c schedulectl -n __fish_use_subcommand -a " + command.name + " -d " +
                    Quote(command.summary) + "\n";
        for (const auto& [name, description] : command.options) {
            if (name == "help" && !command.name.empty()) continue;
            const bool path = name == "app" || name == "export";
            const bool value = name == "at" || name == "armed" || name == "tz";
            const char* argument = path               ? " -r -F"
                                   : value            ? " -x"
                                   : name == "weekly" ? " -x -a 'mon-fri sat,sun weekdays weekend'"
                                   : name == "color"  ? " -x -a 'auto always never'"
                                                      : "";
            text +=
                "complete -c schedulectl" + condition + " -l " + name + argument + " -d " + Quote(description) + "\n";
        }
        if (command.takesNames)
            text += "complete -c schedulectl" + condition + " -a '(schedulectl names 2>/dev/null)'\n";
        if (command.name == "import") text += "complete -c schedulectl" + condition + " -F\n";
        if (command.name == "completion") text += "complete -c schedulectl" + condition + " -a 'bash zsh fish'\n";
    }
    return text;
}

}  // namespace

std::string CompletionScript(const std::string& shell) {
    const std::vector<CompletedCommand> commands = CompletedCommands();
    if (shell == "bash") return Bash(commands);
    if (shell == "zsh") return Zsh(commands);
    if (shell == "fish") return Fish(commands);
    const std::vector<std::string> likely = Likely(shell, {"bash", "zsh", "fish"});
    throw Failure{ExitCode::usage, "\"" + Printable(shell) + "\" is no shell that I know",
                  likely.empty() ? "There are scripts for bash, zsh and fish." : DidYouMean(likely),
                  "schedulectl completion bash", likely};
}

}  // namespace schedulectl
