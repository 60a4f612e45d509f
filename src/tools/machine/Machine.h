#pragma once

#include "platform/iokit/RegistryReplacement.h"
#include "platform/workspace/applications/ApplicationFolders.h"
#include "rules/functions/RuleServices.h"
#include "tools/terminal/Result.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qv {
class CopiedWorkspace;
}

namespace qv::tools {

/// The machine that rules ask: this one, or another one of whose files a folder holds a copy. While
/// it lives, it is that of the whole process.
class Machine {
public:
    /// `root` is the folder; empty for this machine. Fails with the reason if there is no such
    /// folder.
    [[nodiscard]] static tl::expected<std::unique_ptr<Machine>, Failure>
    below(const std::string& root);

    [[nodiscard]] const RuleServices::Shared& services() const noexcept { return services_; }
    /// The applications that rules find.
    [[nodiscard]] std::vector<InstalledApplication> applications() const;

private:
    Machine() = default;
    std::optional<RegistryReplacement> devices_;
    std::shared_ptr<CopiedWorkspace> copy_; // null for this machine
    RuleServices::Shared services_;
};

} // namespace qv::tools
