#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Description.h"
#include "platform/preferences/PreferencesService.h"
#include "script/ScriptEngine.h"
#include "script/operations/Fields.h"

#include <fmt/core.h>

#include <string>

namespace qv {

namespace {

std::optional<std::string> name(const Field& field, const std::optional<Value>& value) {
    checkField(field, value);
    return value ? std::optional(std::string(value->asString())) : std::nullopt;
}

} // namespace

Error QVCatalogScript::setPreferencesForApplicationID(const std::optional<Value>& applicationID,
                                                      const std::optional<Value>& key,
                                                      const std::optional<Value>& value,
                                                      const std::optional<Value>& userName,
                                                      const std::optional<Value>& hostName) {
    return engine_->perform(
        OperationCode::setPreferencesForApplicationID,
        {applicationID, key, value, userName, hostName}, [&] {
            const PreferencesDomain domain{.applicationID =
                                               name(field::kApplication, applicationID),
                                           .userName = name(field::kUser, userName),
                                           .hostName = name(field::kHost, hostName)};
            engine_->noted = StepOutcome::done; // the value may have been stored already
            engine_->preferencesService().setValue(name(field::kPreferenceKey, key), value, domain);
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
