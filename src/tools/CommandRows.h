#pragma once

#include "tools/CommandTree.h"
#include "tools/Commands.h"

#include <functional>

namespace CLI {
class App;
} // namespace CLI

namespace qv::tools {

/// What a command line has chosen, ready to be called.
using Command = std::function<Result()>;

/// Gives the program its commands with their options; `chosen` must live as long as `app`.
void addAllCommands(CLI::App& app, Command& chosen);

/// A command with its options and the commands below it, without hidden ones.
[[nodiscard]] CommandDescription descriptionOf(const CLI::App& command);

} // namespace qv::tools
