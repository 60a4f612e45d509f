#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qv::tools {

/// An option of a command, or an argument, which has no names.
struct OptionDescription {
    std::vector<std::string> names;   ///< "-o", "--output"
    std::string value;                ///< names what it takes: "FILE"; empty: it is a flag
    std::vector<std::string> choices; ///< the only values; empty: any
    std::string help;
    bool isRequired = false;
    bool takesSeveral = false;
    bool isCommon = false; ///< every command has it
};

/// A command, or a group of commands, which has no options but --help.
struct CommandDescription {
    std::string name; ///< the last word of it
    std::string help;
    std::string footer; ///< the text after the options
    std::vector<OptionDescription> options;
    std::vector<OptionDescription> arguments;
    std::vector<CommandDescription> commands; ///< of a group
};

/// The manual page of a program, for section 1, in troff with the macros of man. The date is shown
/// as it is.
[[nodiscard]] std::string manualPage(const CommandDescription& program, std::string_view version,
                                     std::string_view date);

/// The operations of scripts as part of a manual page.
[[nodiscard]] std::string manualOfOperations();

// The completions of a program's words, for shells to read. A value whose name is FILE, PATH or
// DESTINATION is completed with files, FOLDER or DIR with folders.
[[nodiscard]] std::string bashCompletion(const CommandDescription& program);
[[nodiscard]] std::string fishCompletion(const CommandDescription& program);
[[nodiscard]] std::string zshCompletion(const CommandDescription& program);

} // namespace qv::tools
