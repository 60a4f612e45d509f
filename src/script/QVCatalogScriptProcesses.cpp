#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/files/FileSystemPath.h"
#include "platform/foundation/process/ProcessExit.h"
#include "platform/workspace/WorkspaceService.h"
#include "script/QVCatalogScript.h"

namespace qv {

Error QVCatalogScript::waitForQuitOfApplicationWithPID(std::int32_t pid) {
    return perform(
        OperationCode::waitForQuitOfApplicationWithPID,
        [&] { return StepValues{Value::integer(pid)}; },
        [&] {
            workspaceService().noteSession(); // who asked may be who quits
            waitForExitOfProcess(pid);
            return Error();
        });
}

Error QVCatalogScript::launchApplicationAtURL(const std::optional<URL>& url) {
    return perform(
        OperationCode::launchApplicationAtURL, [&] { return StepValues{stringFromURL(url)}; },
        [&] {
            return workspaceService().launchApplicationAtURL(url, kWorkspaceLaunchDefault,
                                                             Value::dictionary({}));
        });
}

Error QVCatalogScript::makeProcessAXTrusted(const std::optional<URL>& url) {
    return perform(
        OperationCode::makeProcessAXTrusted, [&] { return StepValues{stringFromURL(url)}; },
        [&] {
            const AXError error =
                accessibilityService().makeProcessTrusted(fileSystemPath(url).value_or(""));
            return error == kAXErrorSuccess ? Error() : Error(kAXErrorDomain, error);
        });
}

} // namespace qv
