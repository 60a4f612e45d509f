#include "platform/foundation/values/Error.h"

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Node.h"

#include <fmt/format.h>

#include <cassert>
#include <cstring>

namespace qv {

namespace {

// The domain's own text for a code, where it has one.
std::string systemText(const Error& error) {
    if (error.domain() != error_domain::kPOSIX) {
        return {};
    }
    const char* text = strerrordesc_np(static_cast<int>(error.code()));
    return text == nullptr ? fmt::format("Unknown error: {}", error.code()) : std::string(text);
}

std::string textUnder(const Value& userInfo, std::string_view key) {
    const Value* value = userInfo.find(key);
    return value == nullptr ? std::string() : description(*value);
}

} // namespace

Error::Error(std::string_view domain, std::int64_t code, const Value& userInfo)
    : value_(Value::errorNode(domain, code, userInfo)) {
    assert(userInfo.isNull() || userInfo.is(Value::Kind::dictionary));
}

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
    std::string reason = textUnder(info, error_key::kLocalizedFailureReason);
    if (reason.empty()) {
        reason = systemText(*this);
    }
    if (reason.empty()) {
        reason = textUnder(info, error_key::kDebugDescription);
    }
    if (!reason.empty()) {
        return fmt::format("The operation couldn’t be completed. {}", reason);
    }
    return fmt::format("The operation couldn’t be completed. ({} error {}.)", domain(), code());
}

} // namespace qv
