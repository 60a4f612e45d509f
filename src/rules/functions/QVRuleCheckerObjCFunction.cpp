#include "rules/functions/QVRuleCheckerObjCFunction.h"

#include "foundation_ext/QVDateTools.h"
#include "foundation_ext/QVStringTools.h"
#include "foundation_ext/QVTransforms.h"
#include "platform/foundation/files/manager/FileManager.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/text/StringEncoding.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/predicate/Predicate.h"
#include "platform/system/ClassRegistry.h"
#include "platform/workspace/launch/WorkspaceService.h"

#include <concepts>
#include <cstdint>
#include <string_view>
#include <tuple>

namespace qv {

QVRuleCheckerObjCFunction::QVRuleCheckerObjCFunction()
    : QVRuleCheckerFunction("objc", std::nullopt, nullptr) {}

std::optional<Value> QVRuleCheckerObjCFunction::resultFor(const std::optional<Value>& parameter,
                                                          bool /*returnString*/) {
    if (!parameter) {
        return std::nullopt;
    }
    // No class or selector has an empty name, so an empty text counts as missing.
    const auto textUnder = [&](std::string_view key) {
        const Value* value = parameter->find(key);
        return value != nullptr && value->is(Value::Kind::string) ? value->asString()
                                                                  : std::string_view();
    };
    const std::string_view question = textUnder("do");
    const std::string_view className = textUnder("class");
    const std::string_view selector = textUnder("selector");
    if (question == "classExists") {
        return Value::boolean(ClassRegistry::hasClass(className));
    }
    if (question == "hasClassSelector") {
        return Value::boolean(ClassRegistry::respondsToSelector(className, selector));
    }
    if (question == "hasInstanceSelector") {
        return Value::boolean(ClassRegistry::instancesRespondToSelector(className, selector));
    }
    return std::nullopt;
}

QV_REGISTER_CLASS(QVRuleCheckerObjCFunction, QVRuleCheckerFunction,
                  QV_METHOD(resultFor, "resultFor:returnString:"));

namespace {

// The linker takes a source out of an archive only if something of it is needed: here, that rules
// can ask for the methods that it adds to the platform's classes.
[[gnu::used]] constexpr auto kNeededSources = std::tuple(
    &QVStringTools::uuid, &QVTransforms::sha1DigestData, &QVDateTools::dateFromISO8601DateString);

} // namespace

// The platform's own classes, with what this program supplies of them. Their rooms lie below the
// registry or beside it, and cannot register them.

QV_REGISTER_PLATFORM_CLASS(NSNull, Value, QV_CLASS_METHOD_AS("null", requires { Self(); }));
QV_REGISTER_PLATFORM_CLASS(
    NSNumber, Value,
    QV_METHOD_AS(
        "boolValue", requires(const Self* value) { boolValue(value); }),
    QV_METHOD_AS(
        "intValue", requires(const Self* value) { intValue(value); }),
    QV_METHOD_AS(
        "unsignedIntValue", requires(const Self* value) { unsignedIntValue(value); }),
    QV_METHOD_AS(
        "integerValue", requires(const Self* value) { integerValue(value); }),
    QV_METHOD_AS(
        "longLongValue", requires(const Self* value) { longLongValue(value); }),
    QV_METHOD_AS(
        "doubleValue", requires(const Self* value) { doubleValue(value); }),
    QV_METHOD_AS("stringValue", requires(const Self& value) { description(value); }));
QV_REGISTER_PLATFORM_CLASS(
    NSString, Value,
    QV_METHOD_AS(
        "boolValue", requires(const Self* value) { boolValue(value); }),
    QV_METHOD_AS(
        "intValue", requires(const Self* value) { intValue(value); }),
    QV_METHOD_AS(
        "integerValue", requires(const Self* value) { integerValue(value); }),
    QV_METHOD_AS(
        "longLongValue", requires(const Self* value) { longLongValue(value); }),
    QV_METHOD_AS(
        "doubleValue", requires(const Self* value) { doubleValue(value); }),
    QV_METHOD_AS(
        "dataUsingEncoding:", requires(std::string_view text, StringEncoding encoding) {
            dataUsingEncoding(text, encoding);
        }));
QV_REGISTER_PLATFORM_CLASS(
    NSData, Value,
    QV_METHOD_AS(
        "length", requires(const Self& value) { value.asData().size(); }),
    QV_METHOD_AS("bytes", requires(const Self& value) { value.asData().data(); }));
QV_REGISTER_PLATFORM_CLASS(NSDate, Value,
                           QV_METHOD_AS(
                               "timeIntervalSinceReferenceDate", requires(const Self& value) {
                                   value.asDate().secondsSinceReference;
                               }));
QV_REGISTER_PLATFORM_CLASS(
    NSArray, Value,
    QV_METHOD_AS(
        "count", requires(const Self& value) { value.asArray().size(); }),
    QV_METHOD_AS("objectAtIndex:", requires(const Self& value) { value.asArray()[0]; }));
QV_REGISTER_PLATFORM_CLASS(
    NSDictionary, Value,
    QV_METHOD_AS(
        "count", requires(const Self& value) { value.asDictionary().size(); }),
    QV_METHOD_AS("objectForKey:", requires(const Self& value) { value.find(""); }));
QV_REGISTER_PLATFORM_CLASS(NSURL, URL,
                           QV_CLASS_METHOD_AS(
                               "URLWithString:", requires { Self::URLWithString(""); }),
                           QV_CLASS_METHOD(fileURLWithPath, "fileURLWithPath:"),
                           QV_METHOD(absoluteString, "absoluteString"), QV_METHOD(scheme, "scheme"),
                           QV_METHOD(isFileURL, "isFileURL"), QV_METHOD(path, "path"),
                           QV_METHOD(lastPathComponent, "lastPathComponent"),
                           QV_METHOD(pathExtension, "pathExtension"),
                           QV_METHOD(URLByDeletingLastPathComponent,
                                     "URLByDeletingLastPathComponent"),
                           QV_METHOD(URLByAppendingPathComponent, "URLByAppendingPathComponent:"));
QV_REGISTER_PLATFORM_CLASS(
    NSError, Error,
    QV_CLASS_METHOD_AS("errorWithDomain:code:userInfo:",
                       std::constructible_from<Self, std::string_view, std::int64_t, const Value&>),
    QV_METHOD_AS("initWithDomain:code:userInfo:",
                 std::constructible_from<Self, std::string_view, std::int64_t, const Value&>),
    QV_METHOD(domain, "domain"), QV_METHOD(code, "code"), QV_METHOD(userInfo, "userInfo"),
    QV_METHOD(localizedDescription, "localizedDescription"));
QV_REGISTER_PLATFORM_CLASS(NSPredicate, Predicate,
                           QV_CLASS_METHOD(predicateWithFormat, "predicateWithFormat:"),
                           QV_METHOD(predicateFormat, "predicateFormat"),
                           QV_METHOD_AS(
                               "evaluateWithObject:",
                               requires(const Self& predicate, const Value& object) {
                                   predicate.evaluateWithObject(object);
                               }),
                           QV_METHOD_AS(
                               "evaluateWithObject:substitutionVariables:",
                               requires(const Self& predicate, const Value& object) {
                                   predicate.evaluateWithObject(object, object);
                               }));
QV_REGISTER_PLATFORM_CLASS(
    NSWorkspace, WorkspaceService,
    QV_METHOD_AS(
        "launchApplicationAtURL:options:configuration:error:",
        requires(Self& workspace, WorkspaceLaunchOptions options, const Value& value) {
            workspace.launchApplicationAtURL(std::nullopt, options, value);
        }),
    QV_METHOD(absolutePathForAppBundleWithIdentifier, "absolutePathForAppBundleWithIdentifier:"),
    QV_METHOD(fullPathForApplication, "fullPathForApplication:"));
QV_REGISTER_PLATFORM_CLASS(NSTask, Task, QV_METHOD(setLaunchPath, "setLaunchPath:"),
                           QV_METHOD(setArguments, "setArguments:"), QV_METHOD(launch, "launch"),
                           QV_METHOD(waitUntilExit, "waitUntilExit"),
                           QV_METHOD(processIdentifier, "processIdentifier"),
                           QV_METHOD(terminationReason, "terminationReason"),
                           QV_METHOD(terminationStatus, "terminationStatus"));
QV_REGISTER_CATEGORY(NSFileManager, NSObject, FileManager,
                     QV_METHOD_AS(
                         "removeItemAtURL:error:",
                         requires(const NamedItem& item) { Self::removeItemAtURL(item); }),
                     QV_METHOD_AS(
                         "copyItemAtURL:toURL:error:",
                         requires(const NamedItem& item) { Self::copyItemAtURL(item, item); }),
                     QV_METHOD_AS(
                         "moveItemAtURL:toURL:error:",
                         requires(const NamedItem& item) { Self::moveItemAtURL(item, item); }),
                     QV_METHOD_AS(
                         "fileExistsAtPath:",
                         requires(const NamedItem& item) { Self::fileExistsAtPath(item); }));

} // namespace qv
