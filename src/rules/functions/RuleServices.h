#pragma once

#include <functional>
#include <memory>
#include <string>

namespace qv {

class PreferencesService;
class WorkspaceService;

/// The services from which the functions of rules get the facts that they are asked for. A service
/// is made when the first rule needs it. One thread at a time.
struct RuleServices {
    using Shared = std::shared_ptr<const RuleServices>;

    std::function<WorkspaceService&()> workspace;
    std::function<PreferencesService&()> preferences;
    /// The folder that holds a copy of another machine's files, as an absolute path without a slash
    /// at its end; empty for this machine. Stands before every path that a function looks at but
    /// those of the running program; paths in rules, of the workspace and in results are those of
    /// the other machine.
    std::string root = {};

    /// Asks on behalf of this process, about this machine.
    [[nodiscard]] static Shared ofThisProcess();
    /// `services`, or those of this process where it is null.
    [[nodiscard]] static Shared orOfThisProcess(Shared services);
};

} // namespace qv
