#include "platform/preferences/PreferenceError.h"

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <cerrno>

namespace qv::preferences {

Error failureAt(std::string_view place, int errorNumber, std::string_view cause) {
    return {error_domain::kPOSIX, errorNumber,
            Value::dictionary({{error_key::kLocalizedDescription,
                                pathText(fmt::format("{}: {}", place, cause))}})};
}

Error failureAt(std::string_view place, int errorNumber) {
    return failureAt(place, errorNumber, errnoText(errorNumber));
}

Error refusalAt(std::string_view place, const Error& refusal) {
    const Value info = refusal.userInfo();
    const Value* detail = info.find(error_key::kDebugDescription);
    return failureAt(place, EINVAL,
                     detail != nullptr && detail->is(Value::Kind::string)
                         ? std::string(detail->asString())
                         : refusal.localizedDescription());
}

} // namespace qv::preferences
