#include "script/PlatformServices.h"

#include "platform/accessibility/TrustStore.h"
#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/preferences/PreferenceFiles.h"
#include "platform/workspace/applications/ApplicationIndexes.h"
#include "platform/workspace/launch/LinuxWorkspace.h"
#include "platform/workspace/trash/TrashService.h"
#include "rules/functions/RuleServices.h"
#include "script/ScriptEngine.h"

#include <unistd.h>

namespace qv {

PlatformServices PlatformServices::shared() {
    PlatformServices services;
    services.applications = std::make_shared<ApplicationIndexes>();
    services.launches = std::make_shared<UserProcesses>();
    services.preferenceChanges = std::make_shared<UserProcesses>();
    services.appleScripts = std::make_shared<UserProcesses>();
    return services;
}

ProcessIdentity::Shared ScriptEngine::requesterOrSelf() const {
    return requester ? requester : ProcessIdentity::ofThisProcess();
}

TrashService& ScriptEngine::trashService() {
    if (!services.trash) {
        services.trash = std::make_shared<FreedesktopTrash>();
    }
    return *services.trash;
}

WorkspaceService& ScriptEngine::workspaceService() {
    if (!services.workspace) {
        services.workspace = std::make_shared<LinuxWorkspace>(
            requesterOrSelf(), WorkspaceMemory{services.applications, services.launches});
    }
    return *services.workspace;
}

PreferencesService& ScriptEngine::preferencesService() {
    if (!services.preferences) {
        services.preferences =
            std::make_shared<PreferenceFiles>(PreferenceEnvironment{}, services.preferenceChanges);
    }
    return *services.preferences;
}

AccessibilityService& ScriptEngine::accessibilityService() {
    if (!services.accessibility) {
        services.accessibility =
            std::make_shared<TrustStore>(TrustStore::defaultFolder(), requesterOrSelf()->user());
    }
    return *services.accessibility;
}

UserProcesses& ScriptEngine::appleScriptProcesses() {
    if (!services.appleScripts) {
        services.appleScripts = std::make_shared<UserProcesses>();
    }
    return *services.appleScripts;
}

std::shared_ptr<const RuleServices> ScriptEngine::ruleServices() {
    if (servicesOfRules == nullptr) {
        servicesOfRules = std::make_shared<RuleServices>(
            RuleServices{[this]() -> auto& { return workspaceService(); },
                         [this]() -> auto& { return preferencesService(); }});
    }
    return servicesOfRules;
}

} // namespace qv
