#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/foundation/process/state/ProcessExit.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "script/ScriptEngine.h"

namespace qv {

Error QVCatalogScript::waitForQuitOfApplicationWithPID(std::int32_t pid) {
    return engine_->perform(OperationCode::waitForQuitOfApplicationWithPID, {pid}, [&] {
        engine_->workspaceService()
            .noteSession(); // the requester may be the process that the step waits for
        waitForExitOfProcess(pid);
        return Error();
    });
}

Error QVCatalogScript::launchApplicationAtURL(const std::optional<URL>& url) {
    return engine_->perform(OperationCode::launchApplicationAtURL, {url}, [&] {
        return engine_->workspaceService().launchApplicationAtURL(url, kWorkspaceLaunchDefault,
                                                                  Value::dictionary({}));
    });
}

Error QVCatalogScript::makeProcessAXTrusted(const std::optional<URL>& url) {
    return engine_->perform(OperationCode::makeProcessAXTrusted, {url}, [&] {
        engine_->noted = StepOutcome::done; // it may have been trusted
        const AXError error =
            engine_->accessibilityService().makeProcessTrusted(fileSystemPath(url).value_or(""));
        return error == kAXErrorSuccess ? Error() : Error(kAXErrorDomain, error);
    });
}

} // namespace qv
