#include "platform/workspace/launch/LaunchError.h"

#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

namespace qv {

Error launchError(std::int64_t code, std::string_view path, std::string_view reason,
                  int errorNumber) {
    std::vector<std::pair<Value, Value>> info = {
        {Value::string(error_key::kFilePath), pathText(path)},
        {Value::string(error_key::kUserStringVariant), Value::array({Value::string("Launch")})},
        {Value::string(error_key::kLocalizedFailureReason),
         pathText(errorNumber == 0 ? std::string(reason)
                                   : fmt::format("{}: {}", reason, errnoText(errorNumber)))}};
    if (errorNumber != 0) {
        info.emplace_back(Value::string(error_key::kUnderlyingError),
                          Value::error(Error::posix(errorNumber)));
    }
    return {error_domain::kOSStatus, code, Value::dictionary(std::move(info))};
}

} // namespace qv
