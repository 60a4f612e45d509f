#pragma once

#include "tools/CommandTree.h"
#include "tools/terminal/Result.h"

#include <functional>
#include <string>
#include <string_view>

namespace CLI {
class App;
} // namespace CLI

namespace qv::tools {

/// The group of the options that every command has, in the help.
inline constexpr std::string_view kCommonGroup = "Options of every command";

/// The command that a command line has chosen, ready to be called.
using Command = std::function<Result()>;

/// Options of every command.
struct CommonOptions {
    std::string colours = "auto"; ///< or always, never
    bool quiet = false;
};

/// Gives the program its commands with their options; `chosen` and `common` must live as long as
/// `app`.
void addAllCommands(CLI::App& app, Command& chosen, CommonOptions& common);

// The rows of the commands that work with the service are in ServiceCommandRows.cpp.
void addRun(CLI::App& command, Command& chosen);
void addLog(CLI::App& command, Command& chosen);
void addStatus(CLI::App& command, Command& chosen);
void addDoctor(CLI::App& command, Command& chosen);
void addSetup(CLI::App& command, Command& chosen);
void addDemo(CLI::App& command, Command& chosen);

/// A command with its options and the commands below it, without hidden ones.
[[nodiscard]] CommandDescription descriptionOf(const CLI::App& command);

} // namespace qv::tools
