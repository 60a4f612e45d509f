#include "rules/functions/QVRuleCheckerApplicationFunction.h"

#include "platform/foundation/files/item/ResourceValues.h"
#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/values/Exception.h"
#include "platform/system/ClassRegistry.h"
#include "platform/system/MainBundle.h"
#include "rules/functions/Parameter.h"

#include <utility>

namespace qv {

namespace {

// Whether a folder above the item, which is below the root, is a package; volumes end the way up.
bool isBundledInPackage(const std::string& root, std::string_view path) {
    while (true) {
        path = path.substr(0, path.find_last_not_of('/') + 1);
        path = path.substr(0, path.rfind('/') + 1); // the parent, with the slash at its end
        if (path.empty()) {
            return false;
        }
        const auto place = copiedPath(root, root + std::string(path), CopiedLink::keep);
        const NamedItem folder(place ? std::optional(URL::fileURLWithPath(*place)) : std::nullopt);
        if (ResourceValues::isPackage(folder).value_or(false)) {
            return true;
        }
        if (path == "/" || ResourceValues::isVolume(folder).value_or(false)) {
            return false;
        }
    }
}

} // namespace

QVRuleCheckerApplicationFunction::QVRuleCheckerApplicationFunction(RuleServices::Shared services)
    : QVRuleCheckerFunction("application", "application", nullptr),
      services_(RuleServices::orOfThisProcess(std::move(services))) {}

std::optional<Value>
QVRuleCheckerApplicationFunction::resultFor(const std::optional<Value>& parameter,
                                            bool /*returnString*/) {
    if (!parameter || !parameter->is(Value::Kind::string)) {
        return std::nullopt;
    }
    const std::string_view text = parameter->asString();
    const std::size_t dot = text.find('.');
    if (dot == std::string_view::npos) {
        const bool isIdentifier = text == "hostApplicationBundleID";
        const auto identifier = isIdentifier
                                    ? MainBundle::textForInfoDictionaryKey("CFBundleIdentifier")
                                    : std::nullopt;
        return identifier ? std::optional(Value::string(*identifier)) : std::nullopt;
    }
    const std::string_view action = text.substr(0, dot);
    if (action == "hostApplicationPath") {
        return pathValue(MainBundle::bundlePath());
    }
    if (action != "installed" && action != "path" && action != "isBundledInPackage") {
        return std::nullopt;
    }
    const auto path = applicationPath(services_->workspace(), text.substr(dot + 1));
    if (action == "installed") {
        return Value::boolean(path.has_value());
    }
    if (action == "path") {
        return pathValue(path);
    }
    if (!path) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        "-[NSURL initFileURLWithPath:]: nil string parameter");
    }
    return Value::boolean(isBundledInPackage(services_->root, *path));
}

QV_REGISTER_CLASS(QVRuleCheckerApplicationFunction, QVRuleCheckerFunction,
                  QV_METHOD(resultFor, "resultFor:returnString:"));

} // namespace qv
