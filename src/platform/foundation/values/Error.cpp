#include "platform/foundation/values/Error.h"

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/ErrorText.h"
#include "platform/foundation/values/Node.h"

#include <fmt/core.h>

namespace qv {

namespace {

std::string textUnder(const Value& userInfo, std::string_view key) {
    const Value* value = userInfo.find(key);
    return value == nullptr ? std::string() : description(*value);
}

// The first words of a sentence that can say no more about what was tried.
std::string_view opening(const Error& error) {
    return error.domain() == error_domain::kCocoa &&
                   error.code() == cocoa_error::kPropertyListReadCorrupt
               ? "The data couldn’t be read because it isn’t in the correct format."
               : "The operation couldn’t be completed.";
}

} // namespace

Error::Error(std::string_view domain, std::int64_t code, const Value& userInfo)
    : value_(Value::errorNode(domain, code, userInfo)) {}

Error Error::withDescription(std::string_view domain, std::int64_t code, std::string_view text) {
    return {domain, code,
            Value::dictionary({{error_key::kLocalizedDescription, Value::string(text)}})};
}

Error Error::posix(int errorNumber) { return {error_domain::kPOSIX, errorNumber}; }

std::string_view Error::domain() const noexcept { return value_.node()->slots()[0].asString(); }

std::int64_t Error::code() const noexcept { return *value_.node()->payload<std::int64_t>(); }

Value Error::userInfo() const {
    const Value& userInfo = value_.node()->slots()[1];
    return userInfo.isNull() ? Value::dictionary({}) : userInfo;
}

std::string Error::description() const { return qv::description(value_); }

std::string Error::localizedDescription() const {
    const Value info = userInfo();
    std::string text = textUnder(info, error_key::kLocalizedDescription);
    if (!text.empty()) {
        return text;
    }
    text = fileErrorSentence(*this);
    if (!text.empty()) {
        return text;
    }
    std::string reason = textUnder(info, error_key::kLocalizedFailureReason);
    if (reason.empty()) {
        reason = systemText(*this);
    }
    if (reason.empty()) { // better than a bare number: it names the place of the fault
        reason = textUnder(info, error_key::kDebugDescription);
    }
    if (reason.empty()) {
        reason = fmt::format("({} error {}.)", domain(), code());
    }
    return fmt::format("{} {}", opening(*this), reason);
}

} // namespace qv
