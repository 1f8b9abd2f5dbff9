#include "tools/schedulectl/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

#include "tools/schedulectl/CommandTable.h"
#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/When.h"

namespace schedulectl {
namespace {

const CommandRow& RowOf(const std::string& name) {
    for (const CommandRow& row : CommandTable())
        if (name == row.name) return row;
    return CommandTable().front();
}

/// "--at tomorrow 7:30" without quotes: the two words become one.
std::vector<std::string> JoinMoments(int argc, const char* const* argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    for (size_t i = 0; i + 2 < words.size(); ++i) {
        const bool takesMoment = words[i] == "--at" || words[i] == "--armed";
        if (!takesMoment || !NamesOnlyADay(words[i + 1]) || !LooksLikeTime(words[i + 2])) continue;
        words[i + 1] += ' ' + words[i + 2];
        words.erase(words.begin() + static_cast<std::ptrdiff_t>(i) + 2);
    }
    return words;
}

constexpr char guard = '\xFF';  // begins no text in UTF-8, so it is nobody's own

/// The parser takes "[a,b]" for a list of two words; a schedule may be called so. Behind a guard it stays one.
void GuardBrackets(std::vector<std::string>& words) {
    for (std::string& word : words)
        if (word.size() > 1 && word.front() == '[' && word.back() == ']') word.insert(word.begin(), guard);
}

void TakeGuardAway(std::string& text) {
    if (text.size() > 2 && text[0] == guard && text[1] == '[' && text.back() == ']') text.erase(0, 1);
}

void TakeGuardsAway(Options& options) {
    for (std::string& name : options.names) TakeGuardAway(name);
    if (options.weekly) TakeGuardAway(*options.weekly);
    for (std::string* text :
         {&options.at, &options.armed, &options.zone, &options.app, &options.file, &options.exportFile, &options.shell})
        TakeGuardAway(*text);
}

void DefineOptions(CLI::App& app, const CommandRow& row, Options& options) {
    const auto has = [&](char what) { return std::string_view(row.takes).find(what) != std::string_view::npos; };
    if (has('n')) app.add_option("NAME", options.names, "Name of the schedule")->required()->expected(1);
    if (has('N')) app.add_option("NAME", options.names, "Names of the schedules")->required();
    if (has('f')) app.add_option("FILE", options.file, "An export; - for standard input")->required();
    if (has('s')) app.add_option("SHELL", options.shell, "bash, zsh or fish")->required();
    if (has('w')) {
        app.add_option("--at", options.at, "When: 09:00, tomorrow 7:30, 2026-12-24 18:00, +15min")
            ->required()
            ->type_name("WHEN");
        auto* daily = app.add_flag("--daily", options.daily, "Every day at that time");
        app.add_option("--weekly", options.weekly, "Every week on these days: mon-fri, sat,sun")
            ->type_name("DAYS")
            ->excludes(daily);
    }
    if (has('c'))
        app.add_option("-n", options.count, "How many starts to show")
            ->check(CLI::Range(1, 1000))
            ->type_name("N")
            ->capture_default_str();
    if (has('z')) {
        app.add_option("--tz", options.zone, "In this time zone, as in Europe/Berlin")->type_name("ZONE");
        app.add_option("--armed", options.armed, "As if stored at that moment, not now")->type_name("WHEN");
    }
    if (has('a'))
        app.add_option("--app", options.app, "The application's bundle, as in /opt/Orvin.app")->type_name("PATH");
    if (has('d')) app.add_flag("--dry-run", options.dryRun, "Show what would be done, and send nothing");
    if (has('y')) app.add_flag("-y,--yes", options.yes, "Do not ask");
    if (has('i')) app.add_flag("--if-idle", options.ifIdle, "Only when it holds no schedule");
    if (has('x')) app.add_option("-o,--export", options.exportFile, "Write the export to this file")->type_name("FILE");
}

std::string OptionName(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    const bool value = option.get_items_expected_max() > 0;
    return Join(names, ", ") + (value ? " " + option.get_type_name().substr(0, option.get_type_name().find(':')) : "");
}

std::string OptionLines(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) continue;
        text += "  " + Pad(OptionName(*option), 22) + ' ' + option->get_description() + '\n';
    }
    return text;
}

std::string Examples(const CommandRow& row) {
    std::string text;
    for (const char* example : row.examples) text += std::string("  ") + example + '\n';
    return text;
}

std::string CommandHelp(const CLI::App& app, const CommandRow& row) {
    std::string usage = std::string("schedulectl ") + row.name;
    for (const CLI::Option* option : app.get_options()) {
        const bool shown = option->get_required() && !option->get_positional();
        if (shown) usage += " " + OptionName(*option);
    }
    usage += " [options]";
    for (const CLI::Option* option : app.get_options())
        if (option->get_positional())
            usage += " " + option->get_name() + (option->get_items_expected_max() > 1 ? "..." : "");
    std::string text = std::string("schedulectl ") + row.name + ": " + row.summary + "\n\n" + Examples(row) +
                       "\nUsage: " + usage + "\n\n" + OptionLines(app);
    text += "  " + Pad("--json, --color WISH", 22) + " As with every command\n";
    if (*row.note != '\0') text += '\n' + Screen(80, false, false).Paragraph(row.note);
    return text;
}

std::string RootHelp(const CLI::App& app) {
    std::string text = "schedulectl: see and manage the schedules that start Orvin\n\n" +
                       std::string("  schedulectl                                  what starts next\n") +
                       "  schedulectl add Standup --at 09:00 --weekly mon-fri\n"
                       "  schedulectl week                             a picture of the coming seven days\n"
                       "  schedulectl why Standup                      would it start Orvin, and if not, why\n"
                       "  schedulectl doctor                           what is wrong, and what to do about it\n";
    std::string group;
    for (const CommandRow& row : CommandTable()) {
        if (*row.group == '\0') continue;
        if (group != row.group) text += '\n' + std::string(row.group) + '\n';
        group = row.group;
        text += "  " + Pad(row.name, 12) + row.summary + '\n';
    }
    text += "\nOptions\n" + OptionLines(app);
    return text + '\n' +
           Screen(80, false, false)
               .Paragraph(
                   "Exit codes: 0 done or yes, 1 no, 2 usage, 3 helper down or without service, 4 not found, 5 refused "
                   "before sending, 6 sent but not confirmed, 7 store unreadable, 8 not allowed to connect.") +
           "\"schedulectl COMMAND --help\" shows examples for each command.\n";
}

struct Grammar {
    CLI::App app;
    Options options;
    bool version = false;
    std::string color = "auto";

    Grammar() {
        app.name("schedulectl");
        app.formatter(std::make_shared<CLI::FormatterLambda>(Help));
        app.require_subcommand(0, 1);
        app.set_help_flag("-h,--help", "Show help, examples first");
        app.add_flag("--version", version, "Show the version");
        app.add_flag("--json", options.json, "One JSON document instead of text, errors too");
        app.add_option("--color", color, "auto, always or never; NO_COLOR is heeded")
            ->check(CLI::IsMember({"auto", "always", "never"}))
            ->type_name("WISH");
        for (const CommandRow& row : CommandTable()) {
            CLI::App* sub = app.add_subcommand(row.name, row.summary)->fallthrough();
            DefineOptions(*sub, row, options);
        }
    }

    static std::string Help(const CLI::App* app, const std::string&, CLI::AppFormatMode) {
        return app->get_parent() == nullptr ? RootHelp(*app) : CommandHelp(*app, RowOf(app->get_name()));
    }
};

[[noreturn]] void RefuseWord(Grammar& grammar, const CLI::App* chosen) {
    std::vector<std::string> rest = grammar.app.remaining(true);
    std::string word = rest.empty() ? "" : rest.front();
    TakeGuardAway(word);
    std::vector<std::string> known;
    const bool option = word.size() > 1 && word[0] == '-';
    if (option) {
        for (const CLI::App* app : {static_cast<const CLI::App*>(&grammar.app), chosen})
            for (const CLI::Option* candidate : app != nullptr ? app->get_options() : std::vector<const CLI::Option*>())
                for (const std::string& name : candidate->get_lnames()) known.push_back("--" + name);
    } else if (chosen == nullptr) {
        for (const CommandRow& row : CommandTable())
            if (*row.group != '\0') known.emplace_back(row.name);
    }
    const std::vector<std::string> likely = Likely(word, known);
    const std::string command = chosen != nullptr ? " " + chosen->get_name() : "";
    const char* kind = option ? "no option" : chosen == nullptr ? "no command" : "one word too many";
    throw Failure{ExitCode::usage, "\"" + Printable(word) + "\" is " + kind,
                  likely.empty() ? "schedulectl" + command + " knows nothing of that name." : DidYouMean(likely),
                  "\"schedulectl" + command + " --help\" shows examples.", likely};
}

/// The parser's own words, put plainly where they are not: "--at: 1 required WHEN missing", "NAME: At Most 1 required".
std::string PlainReason(const CLI::ParseError& error) {
    std::string why = error.what();
    const std::string subject = why.substr(0, why.find(": "));
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        if (subject[0] == '-') return subject + " needs a value after it.";
        return "One " + subject + " is expected here; with blanks in it, it needs quotes.";
    }
    if (!why.empty() && why.back() != '.') why += '.';
    return why;
}

[[noreturn]] void RefuseLine(const CLI::ParseError& error, const CLI::App* chosen) {
    const std::string command = chosen != nullptr ? " " + chosen->get_name() : "";
    const std::string why = PlainReason(error);
    throw Failure{ExitCode::usage, "The command line cannot be understood", why,
                  "\"schedulectl" + command + " --help\" shows examples."};
}

}  // namespace

bool Options::needsService() const {
    const bool sends = RowOf(commandName).service;
    return sends && !dryRun;
}

std::optional<Options> ParseCommandLine(int argc, const char* const* argv, std::string& text) {
    Grammar grammar;
    std::vector<std::string> words = JoinMoments(argc, argv);
    GuardBrackets(words);
    std::reverse(words.begin(), words.end());
    const auto chosen = [&]() -> const CLI::App* {
        const auto subcommands = grammar.app.get_subcommands();
        return subcommands.empty() ? nullptr : subcommands.front();
    };
    try {
        grammar.app.parse(words);
    } catch (const CLI::CallForHelp&) {
        text = grammar.app.help();
        return std::nullopt;
    } catch (const CLI::ExtrasError&) {
        RefuseWord(grammar, chosen());
    } catch (const CLI::ParseError& error) {
        RefuseLine(error, chosen());
    }
    Options& options = grammar.options;
    TakeGuardsAway(options);
    if (chosen() != nullptr) options.commandName = chosen()->get_name();
    options.command = RowOf(options.commandName).command;
    options.color = grammar.color == "always"  ? ColorChoice::always
                    : grammar.color == "never" ? ColorChoice::never
                                               : ColorChoice::automatic;
    if (!grammar.version) return options;
    text = options.json ? "{\"schema\":1,\"command\":\"version\",\"version\":\"" SCHEDULECTL_VERSION "\"}\n"
                        : "schedulectl " SCHEDULECTL_VERSION "\n";
    return std::nullopt;
}

std::vector<CompletedCommand> CompletedCommands() {
    const Grammar grammar;
    std::vector<CompletedCommand> commands;
    const auto options = [](const CLI::App& app) {
        std::vector<std::pair<std::string, std::string>> result;
        for (const CLI::Option* option : app.get_options())
            for (const std::string& name : option->get_lnames()) result.emplace_back(name, option->get_description());
        return result;
    };
    for (const CommandRow& row : CommandTable()) {
        if (*row.group == '\0') continue;
        const bool names = std::string_view(row.takes).find_first_of("nN") != std::string_view::npos;
        commands.push_back({row.name, row.summary, options(*grammar.app.get_subcommand(row.name)), names});
    }
    commands.push_back({"", "", options(grammar.app), false});
    return commands;
}

}  // namespace schedulectl
