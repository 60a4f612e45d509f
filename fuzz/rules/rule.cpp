// Any text as a rule: preprocessed in both modes, then decided. It ends with a value or an
// Exception, and with variables the text is no longer than the rule and a little for each call.

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/UTF8.h"
#include "rules/QVRuleChecker.h"

#include <cstdint>
#include <cstdlib>

namespace {

qv::QVRuleChecker& checker() {
    static const std::unique_ptr<qv::QVRuleChecker> instance = [] {
        qv::log::open("fuzz", qv::log::Destination::nowhere);
        auto made = qv::QVRuleChecker::ruleCheckerWithDefaultFunctions(true);
        made->addFunction(qv::QVRuleCheckerFunction::functionWithFunctionID(
            "f", "f",
            [](auto&, const std::optional<qv::Value>& parameter, bool) -> std::optional<qv::Value> {
                return parameter && parameter->is(qv::Value::Kind::string) ? parameter
                                                                           : std::nullopt;
            }));
        made->setKvoValues(qv::Value::dictionary({{"k", qv::Value::integer(1)}}));
        return made;
    }();
    return *instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string rule(data, data + size);
    if (!qv::isUTF8(rule)) {
        return 0;
    }
    qv::Value variables;
    const std::string text = checker().preprocessCheckRule(rule, &variables);
    if (text.size() > 2 * rule.size() + 16) {
        std::abort();
    }
    try { // without variables a result that is not a string is the caller's fault
        static_cast<void>(checker().preprocessCheckRule(rule, nullptr));
    } catch (const qv::Exception&) { // NOLINT(bugprone-empty-catch)
    }
    std::optional<qv::Exception> exception;
    static_cast<void>(checker().runCheck(qv::Value::string(rule), &exception));
    return 0;
}
