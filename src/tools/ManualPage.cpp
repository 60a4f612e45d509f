#include "script/review/WrittenField.h"
#include "script/step/OperationTable.h"
#include "tools/CommandTree.h"
#include "tools/terminal/Result.h"

#include <fmt/format.h>

#include <cctype>

namespace qv::tools {

namespace {

// A text as troff takes it. No line of these pages begins with a text that may begin with a dot.
std::string troff(std::string_view text) {
    std::string result;
    for (const char letter : text) {
        switch (letter) {
        case '\\':
            result += "\\e";
            break;
        case '-':
            result += "\\-";
            break;
        case '"':
            result += "\\(dq";
            break;
        case '\'':
            result += "\\(aq";
            break;
        default:
            result += letter;
        }
    }
    return result;
}

std::string bold(std::string_view text) { return "\\fB" + troff(text) + "\\fR"; }

std::string italic(std::string_view text) { return "\\fI" + troff(text) + "\\fR"; }

std::string valueOf(const OptionDescription& option) {
    if (option.choices.empty()) {
        return italic(option.value);
    }
    std::string choices;
    for (const std::string& choice : option.choices) {
        choices += (choices.empty() ? "" : "|") + bold(choice);
    }
    return choices;
}

std::string inSynopsis(const OptionDescription& option) {
    std::string text;
    if (!option.names.empty()) {
        text = bold(option.names.back()) + (option.value.empty() ? "" : "\\ ");
    }
    text += option.value.empty() ? "" : valueOf(option);
    text += option.takesSeveral ? "\\ ..." : "";
    return option.isRequired ? text : "[" + text + "]";
}

std::string synopsis(const std::string& name, const CommandDescription& command) {
    std::string text = bold(name);
    for (const auto* list : {&command.options, &command.arguments}) {
        for (const OptionDescription& option : *list) {
            text += option.isCommon ? std::string() : "\n" + inSynopsis(option);
        }
    }
    return text + "\n";
}

std::string entry(const OptionDescription& option) {
    std::string heading;
    for (const std::string& name : option.names) {
        heading += (heading.empty() ? "" : ", ") + bold(name);
    }
    if (!option.value.empty()) {
        heading += (heading.empty() ? "" : " ") + valueOf(option);
    }
    return fmt::format(".TP\n{}\n{}\n", heading, troff(option.help));
}

// The commands without those that are mere groups, each with its full name.
void forEachCommand(const std::string& name, const CommandDescription& command, const auto& visit) {
    for (const CommandDescription& each : command.commands) {
        const std::string full = name + " " + each.name;
        if (each.commands.empty()) {
            visit(full, each);
        }
        forEachCommand(full, each, visit);
    }
}

} // namespace

std::string manualPage(const CommandDescription& program, std::string_view version,
                       std::string_view date) {
    std::string purpose = program.help.substr(0, program.help.find_last_not_of('.') + 1);
    purpose.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(purpose.front())));
    std::string page = fmt::format(
        ".\\\" Written by {0} itself.\n.TH {0} 1 \"{1}\" \"QVCatalog {2}\" \"User "
        "commands\"\n.SH NAME\n{0} \\- {3}\n.SH SYNOPSIS\n.nf\n{4} \\fICOMMAND\\fR "
        "...\n{4} {5}\n.fi\n.SH DESCRIPTION\n",
        program.name, date, version, troff(purpose), bold(program.name), bold("--version"));
    page += "Every command below takes these options:\n";
    for (const OptionDescription& option : program.commands.front().options) {
        page += option.isCommon ? entry(option) : std::string();
    }
    page += ".SH COMMANDS\n";
    forEachCommand(
        program.name, program, [&page](const std::string& name, const CommandDescription& command) {
            page += fmt::format(".SS {}\n{}.PP\n{}.\n", troff(name.substr(name.find(' ') + 1)),
                                synopsis(name, command), troff(command.help));
            for (const auto* list : {&command.arguments, &command.options}) {
                for (const OptionDescription& option : *list) {
                    if (!option.isCommon) {
                        page += entry(option);
                    }
                }
            }
            if (!command.footer.empty()) {
                page += ".PP\n" + troff(command.footer) + "\n";
            }
        });
    page += ".SH EXIT STATUS\n";
    for (const ExitStatusMeaning& each : kExitStatusMeanings) {
        page += fmt::format(".TP\n{}\n{}\n", static_cast<int>(each.status), troff(each.meaning));
    }
    return page + ".SH SEE ALSO\n.BR qvcatalog\\-script (5),\n.BR qvcatalog\\-rules (7),\n"
                  ".BR QVCatalogHelperXPC (8)\n";
}

std::string manualOfOperations() {
    std::string page;
    for (const Operation& operation : allOperations()) {
        page += fmt::format(".TP\n{} ({})\n{}.\n", bold(operation.name),
                            static_cast<int>(operation.code), troff(operation.text));
        for (const Field& field : operation.fields) {
            const WrittenKind& kind = writtenKind(field.kind);
            page += fmt::format(".br\n{} ({}): {}{}\n", bold(field.writtenKey()),
                                stepKeyName(field.key), troff(kind.text),
                                kind.isOptional ? "; optional" : "");
        }
    }
    return page;
}

} // namespace qv::tools
