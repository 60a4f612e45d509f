#include "platform/applescript/AppleScript.h"
#include "platform/foundation/process/worker/UserProcesses.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "script/ScriptEngine.h"
#include "script/operations/Fields.h"

#include <string>

namespace qv {

Error QVCatalogScript::executeAppleScript(const std::optional<Value>& source) {
    return engine_->perform(OperationCode::executeAppleScript, {source}, [&] {
        checkField(field::kAppleScript, source);
        if (!source) { // no source makes no script
            return Error();
        }
        engine_->workspaceService().noteSession(); // the requester may end meanwhile
        const std::optional<AppleScriptError> error =
            AppleScript(std::string(source->asString()))
                .compileAndExecute(engine_->requesterOrSelf(), engine_->appleScriptProcesses(),
                                   AppleScript::Until::executed, engine_->services.workspace)
                .error;
        return error ? Error::withDescription(kCatalogScriptErrorDomain, error->number,
                                              error->description())
                     : Error();
    });
}

} // namespace qv
