#include "tools/CommandLine.h"

#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/text/SimilarNames.h"
#include "tools/CommandRows.h"
#include "tools/terminal/Terminal.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <array>
#include <functional>
#include <span>
#include <sstream>

namespace qv::tools {

namespace {

OptionDescription describedOption(const CLI::Option& option) {
    OptionDescription description;
    for (const std::string& name : option.get_snames()) {
        description.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        description.names.push_back("--" + name);
    }
    description.help = option.get_description();
    description.isRequired = option.get_required();
    description.isCommon = option.get_group() == kCommonGroup || option.check_lname("help");
    description.takesSeveral =
        option.get_items_expected_max() >= CLI::detail::expected_max_vector_size;
    if (option.get_items_expected_max() > 0) {
        const std::string type = option.get_type_name(); // "FORMAT:{xml,binary,json}"
        const auto check = type.find(":{");
        description.value = option.get_positional() ? option.get_name() : type.substr(0, check);
        if (check != std::string::npos) {
            description.choices =
                CLI::detail::split(type.substr(check + 2, type.size() - check - 3), ',');
        }
        if (!option.get_default_str().empty()) {
            description.help += fmt::format("; {} when left out", option.get_default_str());
        }
    }
    return description;
}

bool isHidden(const CLI::App& command) { return command.get_group().empty(); }

// A command with those that it stands in, "qvcatalog trust list".
std::string fullName(const CLI::App& command) {
    const CLI::App* parent = command.get_parent();
    return (parent == nullptr ? "" : fullName(*parent) + " ") + command.get_name();
}

// One line for each command below this one.
std::string listing(const CLI::App& parent) {
    std::string lines;
    for (const CLI::App* command : parent.get_subcommands({})) {
        if (isHidden(*command)) {
            continue;
        }
        lines += command->get_subcommands({}).empty()
                     ? fmt::format("  {:<28} {}\n", fullName(*command), command->get_description())
                     : listing(*command);
    }
    return lines;
}

// The fault in the words of a command line: the first unknown one, if there is one. `place` is the
// innermost command that they name.
std::string usageFault(const CLI::App& place, const std::vector<std::string>& unknown,
                       const CLI::ParseError& error) {
    const std::string name = place.get_parent() == nullptr ? "" : fullName(place).substr(10) + ": ";
    if (unknown.empty()) {
        return name + error.what();
    }
    const std::string& word = unknown.front();
    std::vector<std::string> known;
    std::string_view kind = "argument";
    if (word.starts_with('-')) {
        kind = "option";
        for (const CLI::Option* option : place.get_options()) {
            for (const std::string& each : option->get_lnames()) {
                known.push_back("--" + each);
            }
        }
    } else if (!place.get_subcommands({}).empty()) {
        kind = "command";
        for (const CLI::App* each : place.get_subcommands({})) {
            known.push_back(each->get_name());
        }
    }
    const std::vector<std::string> similar = similarNames(word, known);
    if (similar == std::vector{word}) { // a word of the command was given to its group
        return fmt::format("{}{} must come after the name of the command", name, word);
    }
    return fmt::format("{}unknown {} \"{}\"{}", name, kind, word,
                       similar.empty()
                           ? std::string()
                           : fmt::format("; did you mean {}?", fmt::join(similar, " or ")));
}

Result parse(CLI::App& app, int count, const char* const* arguments) {
    try {
        app.parse(count, arguments);
        return ExitStatus::success;
    } catch (const CLI::Success& success) { // --help, --version
        std::ostringstream text;
        app.exit(success, text);
        Terminal::standardOutput().write(text.str());
        return ExitStatus::success;
    } catch (const CLI::ParseError& error) {
        const std::vector<std::string> unknown = app.remaining(true);
        const CLI::App* place = &app;
        while (!place->get_subcommands().empty()) {
            place = place->get_subcommands().front();
        }
        if (!place->get_subcommands({}).empty() && unknown.empty()) {
            Terminal::standardError().write(
                fmt::format("usage: {} COMMAND ... (--help tells more)\n{}", fullName(*place),
                            listing(*place)));
            return failure(ExitStatus::usage, "a command is missing");
        }
        return failure(ExitStatus::usage, usageFault(*place, unknown, error));
    }
}

} // namespace

CommandDescription descriptionOf(const CLI::App& command) {
    CommandDescription description;
    description.name = command.get_name();
    description.help = command.get_description();
    const CLI::App* parent = command.get_parent(); // hands its footer down
    if (parent == nullptr || command.get_footer() != parent->get_footer()) {
        description.footer = command.get_footer();
    }
    for (const CLI::Option* option : command.get_options()) {
        (option->get_positional() ? description.arguments : description.options)
            .push_back(describedOption(*option));
    }
    for (const CLI::App* each : command.get_subcommands({})) {
        if (!isHidden(*each)) {
            description.commands.push_back(descriptionOf(*each));
        }
    }
    return description;
}

Result parseAndRun(int count, const char* const* arguments) {
    CLI::App app(
        "Works with QVCatalogHelperXPC, the service that carries out installation scripts.",
        "qvcatalog");
    app.set_version_flag("--version", std::string(configuration::kVersion));
    std::string statuses = "Exit status:";
    for (const ExitStatusMeaning& each : kExitStatusMeanings) {
        statuses += fmt::format("\n  {:<3} {}", static_cast<int>(each.status), each.meaning);
    }
    app.footer(statuses);
    Command chosen;
    CommonOptions common;
    addAllCommands(app, chosen, common);
    const Result parsed = parse(app, count, arguments);
    using Colours = Appearance::Colours;
    Terminal::setAppearance({.colours = common.colours == "always"  ? Colours::always
                                        : common.colours == "never" ? Colours::never
                                                                    : Colours::automatic,
                             .quiet = common.quiet});
    return parsed && chosen ? chosen() : parsed;
}

} // namespace qv::tools
