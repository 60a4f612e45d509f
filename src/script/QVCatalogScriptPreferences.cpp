#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Exception.h"
#include "platform/preferences/PreferencesService.h"
#include "script/QVCatalogScript.h"

#include <fmt/core.h>

#include <string>

namespace qv {

namespace {

std::optional<std::string> name(std::string_view what, const std::optional<Value>& value) {
    if (!value) {
        return std::nullopt;
    }
    if (!value->is(Value::Kind::string)) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        fmt::format("the {} of a preference must be a string, not of class {}",
                                    what, className(value->kind())));
    }
    return std::string(value->asString());
}

} // namespace

Error QVCatalogScript::setPreferencesForApplicationID(const std::optional<Value>& applicationID,
                                                      const std::optional<Value>& key,
                                                      const std::optional<Value>& value,
                                                      const std::optional<Value>& userName,
                                                      const std::optional<Value>& hostName) {
    return perform(
        OperationCode::setPreferencesForApplicationID,
        [&] { return StepValues{applicationID, key, value, userName, hostName}; },
        [&] {
            const PreferencesDomain domain{.applicationID = name("application", applicationID),
                                           .userName = name("user", userName),
                                           .hostName = name("host", hostName)};
            preferencesService().setValue(name("key", key), value, domain);
            const Error cause = preferencesService().synchronize(domain);
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
