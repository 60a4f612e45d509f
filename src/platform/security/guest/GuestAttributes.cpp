#include "platform/security/guest/GuestAttributes.h"

#include "platform/security/guest/SecCode.h"
#include "platform/security/requirement/CodeSigningError.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>

#include <bit>
#include <cstring>
#include <limits>

namespace qv {

namespace {

tl::unexpected<Error> invalid(std::string_view why) {
    return tl::unexpected(codeSigningError(codesign_status::kInvalidAttributeValues, why));
}

} // namespace

Value AuditToken::data() const {
    const auto bytes = std::bit_cast<std::array<char, sizeof(words)>>(words);
    return Value::data({bytes.data(), bytes.size()});
}

tl::expected<GuestSelector, Error> selectGuest(const Value& attributes) {
    if (const Value* audit = attributes.find(kSecGuestAttributeAudit)) {
        if (!audit->is(Value::Kind::data)) {
            return invalid("the audit token is not data");
        }
        AuditToken token;
        if (audit->asData().size() != sizeof(token.words)) {
            return invalid(fmt::format("the audit token has {} bytes instead of {}",
                                       audit->asData().size(), sizeof(token.words)));
        }
        std::memcpy(token.words.data(), audit->asData().data(), sizeof(token.words));
        return GuestSelector{.process = token.process(), .inode = token.inode()};
    }
    const Value* pid = attributes.find(kSecGuestAttributePid);
    if (pid == nullptr) {
        return tl::unexpected(
            codeSigningError(codesign_status::kUnsupportedGuestAttributes,
                             "the attributes hold neither a process number nor an audit token"));
    }
    if (!pid->is(Value::Kind::integer)) {
        return invalid("the process number is not an integer");
    }
    const std::int64_t number = pid->asInteger();
    const bool possible = number > 0 && number <= std::numeric_limits<pid_t>::max();
    return GuestSelector{.process = possible ? static_cast<pid_t>(number) : 0, .inode = {}};
}

} // namespace qv
