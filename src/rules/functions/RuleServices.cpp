#include "rules/functions/RuleServices.h"

#include "platform/preferences/PreferenceFiles.h"
#include "platform/workspace/launch/LinuxWorkspace.h"

#include <utility>

namespace qv {

RuleServices::Shared RuleServices::ofThisProcess() {
    auto services = std::make_shared<RuleServices>();
    services->workspace = [made = std::shared_ptr<WorkspaceService>()]() mutable -> auto& {
        if (made == nullptr) {
            made = std::make_shared<LinuxWorkspace>(ProcessIdentity::ofThisProcess());
        }
        return *made;
    };
    services->preferences = [made = std::shared_ptr<PreferencesService>()]() mutable -> auto& {
        if (made == nullptr) {
            made = std::make_shared<PreferenceFiles>();
        }
        return *made;
    };
    return services;
}

RuleServices::Shared RuleServices::orOfThisProcess(Shared services) {
    return services != nullptr ? std::move(services) : ofThisProcess();
}

} // namespace qv
