#include "rules/functions/QVRuleCheckerVersionFunction.h"

#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Description.h"
#include "platform/system/ClassRegistry.h"
#include "platform/system/MainBundle.h"
#include "platform/system/ReleaseFile.h"
#include "platform/workspace/applications/ResourceFork.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "rules/functions/ComputerModel.h"
#include "rules/functions/Parameter.h"

#include <fmt/core.h>

#include <array>
#include <utility>

namespace qv {

namespace {

constexpr std::string_view kVersionKey = "CFBundleVersion";
constexpr std::string_view kShortVersionKey = "CFBundleShortVersionString";

struct SplitModel {
    std::string_view name;
    std::string_view version;
};

// Splits before the number in front of the first comma. The first character is never looked at, so
// a model that has nothing but digits behind it cannot be split.
std::optional<SplitModel> splitModel(std::string_view model) {
    const std::size_t comma = model.find(',');
    if (comma == std::string_view::npos) {
        return std::nullopt;
    }
    std::size_t first = 1; // the byte behind the first character
    while (first < comma && (static_cast<unsigned char>(model[first]) & 0xC0U) == 0x80U) {
        ++first;
    }
    for (std::size_t i = comma; i-- > first;) {
        if (!isDigit(model[i])) {
            return SplitModel{model.substr(0, i + 1), model.substr(i + 1)};
        }
    }
    return std::nullopt;
}

std::optional<Value> textValue(std::optional<std::string_view> text) {
    return text ? std::optional(Value::string(*text)) : std::nullopt;
}

// `value` is the value so far, for a question that has no answer here.
std::optional<Value> computerValue(std::string_view question, const std::string& model,
                                   std::optional<Value> value) {
    if (question == "computerIdentifier") {
        return Value::string(model);
    }
    const std::optional<SplitModel> parts = splitModel(model);
    if (question == "computerModel") {
        return parts ? textValue(parts->name) : std::nullopt;
    }
    if (question == "computerVersion") {
        return parts ? textValue(parts->version) : std::nullopt;
    }
    if (question == "computerVersionMajor") {
        return parts ? textValue(parts->version.substr(0, parts->version.find(','))) : std::nullopt;
    }
    if (question == "computerVersionMinor" && parts) {
        return textValue(parts->version.substr(parts->version.find(',') + 1));
    }
    return value;
}

bool holdsAny(const Value& arguments, std::string_view version) {
    static constexpr std::array<std::pair<std::string_view, ComparisonResult>, 3> kComparisons = {
        {{"greaterThan", ComparisonResult::descending},
         {"equalTo", ComparisonResult::same},
         {"lessThan", ComparisonResult::ascending}}};
    for (const auto& [name, result] : kComparisons) {
        const std::optional<std::string_view> other = argument(arguments, name);
        if (other && QVStringTools::compareVersionTo(version, other) == result) {
            return true;
        }
    }
    return false;
}

void logListFault(std::string_view fault) {
    log::NSLog(fmt::format(
        "+[QVRuleCheckerVersionFunction plistResourceDictionaryForFile] error: {}", fault));
}

} // namespace

QVRuleCheckerVersionFunction::QVRuleCheckerVersionFunction(RuleServices::Shared services)
    : QVRuleCheckerFunction("version", "version", nullptr),
      services_(RuleServices::orOfThisProcess(std::move(services))) {}

const Value& QVRuleCheckerVersionFunction::osRelease() {
    if (!osRelease_) {
        const SystemVersion version = ReleaseFile::read(services_->root).version();
        osRelease_ = Value::string(fmt::format("{}.{}.{}", version[0], version[1], version[2]));
    }
    return *osRelease_;
}

std::optional<Value> QVRuleCheckerVersionFunction::applicationVersion(std::string_view target,
                                                                      std::string_view key) const {
    const std::optional<std::string> path = applicationPath(services_->workspace(), target);
    if (!path) {
        return std::nullopt;
    }
    ApplicationVersion version = services_->workspace().versionOfApplicationAtPath(*path, key);
    if (version.listFault) {
        logListFault(*version.listFault);
    }
    return std::move(version.value);
}

std::optional<Value> QVRuleCheckerVersionFunction::resultFor(const std::optional<Value>& parameter,
                                                             bool returnString) {
    const bool isText = parameter && parameter->is(Value::Kind::string);
    if (!isText && !(parameter && parameter->is(Value::Kind::dictionary))) {
        return std::nullopt;
    }
    const std::string_view question =
        isText ? parameter->asString() : argument(*parameter, "of").value_or("");
    std::optional<Value> value;
    if (question == "os") {
        value = osRelease();
    }
    if (isText && !value) {
        value = applicationVersion(question, kVersionKey);
    } else if (!isText && question == "application") {
        if (const auto target = argument(*parameter, "bundleID")) {
            const bool isShort = parameter->find("useShortVersion") != nullptr;
            value = applicationVersion(*target, isShort ? kShortVersionKey : kVersionKey);
        }
    }
    if (question == "hostApplication" || question == "hostApplicationShort") {
        value = textValue(MainBundle::textForInfoDictionaryKey(
            question == "hostApplication" ? kVersionKey : kShortVersionKey));
    }
    if (question.starts_with("computer")) {
        const ComputerModel computer = ComputerModel::read();
        if (!computer.hasExpert) {
            return std::nullopt;
        }
        if (computer.model) {
            value = computerValue(question, *computer.model, std::move(value));
        }
    }
    // A version that is not text, as an information list may have it, cannot be compared.
    if (!isText && value && value->is(Value::Kind::string) &&
        holdsAny(*parameter, value->asString())) {
        value = Value::boolean(true);
    }
    return returnString ? Value::string(description(value ? &*value : nullptr)) : value;
}

std::optional<Value>
QVRuleCheckerVersionFunction::plistResourceDictionaryForFile(const std::string& path) {
    tl::expected<std::optional<Value>, std::string> list = resourceListOfItem(path);
    if (!list) {
        logListFault(list.error());
    }
    return list ? *std::move(list) : std::nullopt;
}

QV_REGISTER_CLASS(QVRuleCheckerVersionFunction, QVRuleCheckerFunction,
                  QV_METHOD(resultFor, "resultFor:returnString:"),
                  QV_CLASS_METHOD(plistResourceDictionaryForFile,
                                  "plistResourceDictionaryForFile:"));

} // namespace qv
