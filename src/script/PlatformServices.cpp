#include "script/PlatformServices.h"

#include "platform/accessibility/TrustStore.h"
#include "platform/preferences/PreferenceFiles.h"
#include "platform/workspace/LinuxWorkspace.h"
#include "platform/workspace/TrashService.h"
#include "platform/workspace/applications/ApplicationIndexes.h"
#include "script/QVCatalogScript.h"

#include <unistd.h>

namespace qv {

PlatformServices PlatformServices::shared() {
    PlatformServices services;
    services.applications = std::make_shared<ApplicationIndexes>();
    services.launches = std::make_shared<UserProcesses>();
    services.preferenceChanges = std::make_shared<UserProcesses>();
    return services;
}

// Without anybody behind it, a script is asked for by the process that it runs in.
Requester QVCatalogScript::requester() const {
    return requester_.value_or(Requester{.process = ::getpid(), .user = ::geteuid()});
}

TrashService& QVCatalogScript::trashService() {
    if (!services_.trash) {
        services_.trash = std::make_shared<FreedesktopTrash>();
    }
    return *services_.trash;
}

WorkspaceService& QVCatalogScript::workspaceService() {
    if (!services_.workspace) {
        services_.workspace = std::make_shared<LinuxWorkspace>(
            requester(), WorkspaceMemory{services_.applications, services_.launches});
    }
    return *services_.workspace;
}

PreferencesService& QVCatalogScript::preferencesService() {
    if (!services_.preferences) {
        services_.preferences = std::make_shared<PreferenceFiles>(PreferenceSurroundings{},
                                                                  services_.preferenceChanges);
    }
    return *services_.preferences;
}

AccessibilityService& QVCatalogScript::accessibilityService() {
    if (!services_.accessibility) {
        services_.accessibility =
            std::make_shared<TrustStore>(TrustStore::defaultFolder(), requester().user);
    }
    return *services_.accessibility;
}

} // namespace qv
