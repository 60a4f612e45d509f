#include "tools/CommandTree.h"

#include <fmt/format.h>

namespace qv::tools {

namespace {

enum class ValueKind : unsigned char { other, file, folder };

ValueKind kindOf(const OptionDescription& option) {
    if (option.value == "FILE" || option.value == "PATH" || option.value == "DESTINATION") {
        return ValueKind::file;
    }
    return option.value == "FOLDER" || option.value == "DIR" ? ValueKind::folder : ValueKind::other;
}

/// The kind of value that completes the arguments of a command.
ValueKind kindOfArguments(const CommandDescription& command) {
    for (const OptionDescription& argument : command.arguments) {
        if (kindOf(argument) != ValueKind::other) {
            return kindOf(argument);
        }
    }
    return ValueKind::other;
}

// A text between single quotes, as each of the shells reads it.
std::string quotedWord(std::string_view text, std::string_view apostrophe = R"('\'')") {
    std::string result = "'";
    for (const char letter : text) {
        result += letter == '\'' ? std::string(apostrophe) : std::string(1, letter);
    }
    return result + "'";
}

std::string words(const CommandDescription& command) {
    std::string result;
    for (const CommandDescription& each : command.commands) {
        result += (result.empty() ? "" : " ") + each.name;
    }
    for (const OptionDescription& option : command.options) {
        result += (result.empty() ? "" : " ") + fmt::format("{}", fmt::join(option.names, " "));
    }
    return result;
}

/// The parts of bash's function: how words name a command, and what fits there.
struct BashParts {
    std::string places; ///< a case for each word that leads to a command
    std::string values; ///< a case for each option with a value
    std::string wanted; ///< a case for each command
};

std::string bashKind(ValueKind kind) {
    switch (kind) {
    case ValueKind::file:
        return "files";
    case ValueKind::folder:
        return "folders";
    case ValueKind::other:
        break;
    }
    return "none";
}

void addToBash(const std::string& place, const CommandDescription& command, BashParts& parts) {
    for (const CommandDescription& each : command.commands) {
        parts.places += fmt::format("        '{0}/{1}') place={0}/{1} ;;\n", place, each.name);
        addToBash(place + "/" + each.name, each, parts);
    }
    for (const OptionDescription& option : command.options) {
        if (!option.value.empty()) {
            for (const std::string& name : option.names) {
                parts.values +=
                    fmt::format("    '{} {}') kind={} words='{}' ;;\n", place, name,
                                bashKind(kindOf(option)), fmt::join(option.choices, " "));
            }
        }
    }
    parts.wanted += fmt::format("        '{}') kind={} words='{}' ;;\n", place,
                                bashKind(kindOfArguments(command)), words(command));
}

// A place of fish: the words of a command, beginning with the one after the program's name.
void addToFish(const std::string& program, const std::string& place,
               const CommandDescription& command, std::string& text) {
    const std::string line = fmt::format("complete -c {} -n '__{}_in{}'", program, program, place);
    for (const CommandDescription& each : command.commands) {
        text += fmt::format("complete -c {0} -n '__{0}_at{1}' -a {2} -d {3}\n", program, place,
                            each.name, quotedWord(each.help, "\\'"));
    }
    for (const OptionDescription& option : command.options) {
        text += place.empty() ? fmt::format("complete -c {0} -n '__{0}_at'", program) : line;
        for (const std::string& name : option.names) {
            text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
        }
        if (!option.choices.empty()) {
            text += fmt::format(" -x -a '{}'", fmt::join(option.choices, " "));
        } else if (!option.value.empty()) {
            const ValueKind kind = kindOf(option);
            text += kind == ValueKind::file     ? " -r -F"
                    : kind == ValueKind::folder ? " -x -a '(__fish_complete_directories)'"
                                                : " -x";
        }
        text += " -d " + quotedWord(option.help, "\\'") + "\n";
    }
    switch (kindOfArguments(command)) {
    case ValueKind::file:
        text += line + " -F\n";
        break;
    case ValueKind::folder:
        text += line + " -a '(__fish_complete_directories)'\n";
        break;
    case ValueKind::other:
        break;
    }
    for (const CommandDescription& each : command.commands) {
        addToFish(program, place + " " + each.name, each, text);
    }
}

// A help text for zsh, to which brackets and colons are separators.
std::string zshHelp(std::string_view text) {
    std::string result;
    for (const char letter : text) {
        result += letter == '[' || letter == ']' || letter == ':' || letter == '\\'
                      ? std::string{'\\', letter}
                      : std::string(1, letter);
    }
    return result;
}

std::string zshValue(const OptionDescription& option) {
    const ValueKind kind = kindOf(option);
    const std::string action = !option.choices.empty()
                                   ? fmt::format("({})", fmt::join(option.choices, " "))
                               : kind == ValueKind::file   ? "_files"
                               : kind == ValueKind::folder ? "_files -/"
                                                           : " ";
    return fmt::format(":{}:{}", zshHelp(option.value), action);
}

void addToZsh(const std::string& function, const CommandDescription& command, std::string& text) {
    std::string body = fmt::format("{}() {{\n", function);
    if (!command.commands.empty()) {
        body += "    local curcontext=$curcontext state line\n    local -a commands\n";
    }
    body += command.commands.empty() ? "    _arguments -s" : "    _arguments -C";
    for (const OptionDescription& option : command.options) {
        for (const std::string& name : option.names) {
            const std::string value = option.value.empty() ? "" : zshValue(option);
            const bool isLong = name.starts_with("--");
            body += " \\\n        " +
                    quotedWord(fmt::format("{}{}{}[{}]{}", option.takesSeveral ? "*" : "", name,
                                           isLong && !value.empty() ? "=" : "",
                                           zshHelp(option.help), value));
        }
    }
    for (const OptionDescription& argument : command.arguments) {
        body +=
            " \\\n        " + quotedWord((argument.takesSeveral ? "*" : ":") + zshValue(argument));
    }
    if (!command.commands.empty()) {
        body += " \\\n        '1: :->command' '*:: :->words'\n    case $state in\n    command)\n"
                "        commands=(\n";
        std::string calls;
        for (const CommandDescription& each : command.commands) {
            const std::string below = function + "_" + each.name;
            body += "            " + quotedWord(each.name + ":" + zshHelp(each.help)) + "\n";
            calls += fmt::format("        {}) {} ;;\n", each.name, below);
            addToZsh(below, each, text);
        }
        body += "        )\n        _describe command commands ;;\n    words)\n        case "
                "$line[1] in\n" +
                calls + "        esac ;;\n    esac";
    }
    text += body + "\n}\n\n";
}

} // namespace

std::string bashCompletion(const CommandDescription& program) {
    BashParts parts;
    addToBash("", program, parts);
    return fmt::format(R"(# Completion of {0} for bash; written by {0} itself.
_{0}() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} place= word
    local kind= words=
    for word in "${{COMP_WORDS[@]:1:COMP_CWORD - 1}}"; do
        case $place/$word in
{1}        esac
    done
    case "$place $before" in
{2}    *)
        case $place in
{3}        esac
        [[ $current == -* || $kind == none ]] || words=
        [[ $current != -* ]] || kind=none ;;
    esac
    mapfile -t COMPREPLY < <(
        compgen -W "$words" -- "$current"
        case $kind in
        files) compgen -f -- "$current" ;;
        folders) compgen -d -- "$current" ;;
        esac
    )
    [[ $kind == none ]] || compopt -o filenames 2>/dev/null
}}
complete -F _{0} {0}
)",
                       program.name, parts.places, parts.values, parts.wanted);
}

std::string fishCompletion(const CommandDescription& program) {
    std::string text = fmt::format(R"(# Completion of {0} for fish; written by {0} itself.
function __{0}_in -d 'The words begin with those of a command'
    set -l words (commandline -opc)[2..-1]
    set -l count (count $argv)
    test $count -eq 0; and return 0
    test (count $words) -ge $count; and test "$words[1..$count]" = "$argv"
end
function __{0}_at -d 'The words are those of a group of commands'
    set -l words (commandline -opc)[2..-1]
    test "$words" = "$argv"
end
complete -c {0} -f
)",
                                   program.name);
    addToFish(program.name, "", program, text);
    return text;
}

std::string zshCompletion(const CommandDescription& program) {
    std::string text = fmt::format("#compdef {0}\n# Completion of {0} for zsh; written by {0} "
                                   "itself.\n\n",
                                   program.name);
    addToZsh("_" + program.name, program, text);
    return text + fmt::format("_{} \"$@\"\n", program.name);
}

} // namespace qv::tools
