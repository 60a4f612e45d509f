#include "rules/functions/QVRuleCheckerFilesystemFunction.h"

#include "foundation_ext/QVTransforms.h"
#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/foundation/files/item/ResourceValues.h"
#include "platform/foundation/files/manager/FileManager.h"
#include "platform/preferences/PreferencesService.h"
#include "platform/system/ClassRegistry.h"
#include "platform/system/MainBundle.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "rules/functions/Parameter.h"

#include <utility>

namespace qv {

namespace {

constexpr std::string_view kSHA1 = "sha1sum";
constexpr std::string_view kMD5 = "md5sum";

std::optional<Value> digestOf(const NamedItem& item, DigestType type) {
    const tl::expected<std::string, Error>& path = item.path();
    const auto digest =
        path ? QVTransforms::computeDigestStringOfFile(*path, type, nullptr) : std::nullopt;
    return digest ? std::optional(Value::string(*digest)) : std::nullopt;
}

std::optional<Value> answerAbout(const NamedItem& item, std::string_view action) {
    if (action == "exists") {
        return Value::boolean(FileManager::fileExistsAtPath(item));
    }
    if (action == "size") {
        const std::optional<std::uint64_t> size = ResourceValues::fileSize(item);
        return size ? std::optional(Value::unsignedInteger(*size)) : std::nullopt;
    }
    if (action == "date") {
        const std::optional<Date> date = ResourceValues::contentModificationDate(item);
        return date ? std::optional(Value::date(*date)) : std::nullopt;
    }
    if (action == kSHA1 || action == kMD5) {
        return digestOf(item, action == kSHA1 ? kSecDigestSHA1 : kSecDigestMD5);
    }
    return std::nullopt;
}

} // namespace

QVRuleCheckerFilesystemFunction::QVRuleCheckerFilesystemFunction(RuleServices::Shared services)
    : QVRuleCheckerFunction("filesystem", std::nullopt, nullptr),
      services_(RuleServices::orOfThisProcess(std::move(services))) {}

std::optional<std::string> QVRuleCheckerFilesystemFunction::pathFrom(const Value& arguments,
                                                                     CopiedLink last) const {
    const std::string& root = services_->root;
    if (const auto path = argument(arguments, "absPath")) {
        const bool isBelowRoot = path->starts_with('/') || root.empty();
        return path->empty()
                   ? std::nullopt
                   : copiedPath(root, root + (isBelowRoot ? "" : "/") + std::string(*path), last);
    }
    const auto below = argument(arguments, "bundlePath");
    if (!below) {
        return std::nullopt;
    }
    const auto identifier = argument(arguments, "bundleID");
    const std::string copy = identifier ? root : ""; // the main bundle is on this machine
    const auto base =
        identifier ? services_->workspace().absolutePathForAppBundleWithIdentifier(*identifier)
                   : MainBundle::bundlePath();
    return base ? copiedPath(copy, copy + *base + "/" + std::string(*below), last) : std::nullopt;
}

std::optional<Value>
QVRuleCheckerFilesystemFunction::resultFor(const std::optional<Value>& parameter,
                                           bool /*returnString*/) {
    const auto action = parameter ? argument(*parameter, "do") : std::nullopt;
    if (!action) {
        return std::nullopt;
    }
    if (*action == "prefsExists" || *action == "prefsValue") {
        const auto domain = argument(*parameter, "bundleID");
        const auto key = argument(*parameter, "key");
        const auto value = domain && key
                               ? services_->preferences().copyAppValue(*key, std::string(*domain))
                               : std::nullopt;
        return *action == "prefsExists" ? std::optional(Value::boolean(value.has_value())) : value;
    }
    const bool isOfItself = *action == "size" || *action == "date"; // also if it is a link
    const std::optional<std::string> path =
        pathFrom(*parameter, isOfItself ? CopiedLink::keep : CopiedLink::follow);
    if (!path) {
        return *action == "exists" ? std::optional(Value::boolean(false)) : std::nullopt;
    }
    return answerAbout(NamedItem(URL::fileURLWithPath(*path)), *action);
}

bool QVRuleCheckerFilesystemFunction::mustBeQuick(const std::optional<Value>& parameter) const {
    const auto action = parameter ? argument(*parameter, "do") : std::nullopt;
    return action != kSHA1 && action != kMD5;
}

QV_REGISTER_CLASS(QVRuleCheckerFilesystemFunction, QVRuleCheckerFunction,
                  QV_METHOD(resultFor, "resultFor:returnString:"));

} // namespace qv
