#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Description.h"
#include "platform/preferences/PreferencesService.h"
#include "script/ScriptEngine.h"

#include <fmt/core.h>

#include <string>

namespace qv {

namespace {

std::optional<std::string> name(StepKey key, std::string_view wanted,
                                const std::optional<Value>& value) {
    if (!value) {
        return std::nullopt;
    }
    if (!value->is(Value::Kind::string)) {
        refuseField(key, wanted, &*value);
    }
    return std::string(value->asString());
}

} // namespace

Error QVCatalogScript::setPreferencesForApplicationID(const std::optional<Value>& applicationID,
                                                      const std::optional<Value>& key,
                                                      const std::optional<Value>& value,
                                                      const std::optional<Value>& userName,
                                                      const std::optional<Value>& hostName) {
    return engine_->perform(
        OperationCode::setPreferencesForApplicationID,
        [&] { return StepValues{applicationID, key, value, userName, hostName}; },
        [&] {
            const PreferencesDomain domain{
                .applicationID = name(StepKey::arg1, "a string, an application", applicationID),
                .userName = name(StepKey::arg4, "a string, a user", userName),
                .hostName = name(StepKey::arg5, "a string, a host", hostName)};
            engine_->preferencesService().setValue(name(StepKey::arg2, "a string, a key", key),
                                                   value, domain);
            const Error cause = engine_->preferencesService().synchronize(domain);
            if (!cause) {
                return Error();
            }
            log::NSLog(fmt::format("Preferences not set: {}", cause.localizedDescription()));
            const auto shown = [](const std::optional<Value>& each) {
                return description(each ? &*each : nullptr);
            };
            return Error::withDescription(
                kCatalogScriptErrorDomain, 0,
                fmt::format("Could net set preferences {} > {} ({},{}) to {}", shown(applicationID),
                            shown(key), shown(userName), shown(hostName), shown(value)));
        });
}

} // namespace qv
