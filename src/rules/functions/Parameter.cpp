#include "rules/functions/Parameter.h"

#include "platform/foundation/values/UTF8.h"
#include "platform/workspace/launch/WorkspaceService.h"

namespace qv {

std::optional<std::string_view> argument(const Value& arguments, std::string_view name) {
    const Value* value = arguments.find(name);
    if (value == nullptr) {
        return std::nullopt;
    }
    return value->is(Value::Kind::string) ? value->asString() : std::string_view();
}

std::optional<std::string> applicationPath(WorkspaceService& workspace, std::string_view target) {
    constexpr std::string_view kName = "AppName.";
    return target.starts_with(kName) ? workspace.fullPathForApplication(target.substr(kName.size()))
                                     : workspace.absolutePathForAppBundleWithIdentifier(target);
}

std::optional<Value> pathValue(const std::optional<std::string>& path) {
    return path && isUTF8(*path) ? std::optional(Value::string(*path)) : std::nullopt;
}

} // namespace qv
