#include "platform/workspace/applications/Patience.h"

#include <fmt/core.h>

#include <cerrno>

namespace qv {

std::string whyNotPerformed(const UserRecord& user, const Error& error) {
    switch (error.code()) {
    case ETIMEDOUT:
        return fmt::format("what belongs to user {} does not answer", user.name);
    case EBUSY:
        return fmt::format("what belongs to user {} did not answer before, and still hangs",
                           user.name);
    default:
        return fmt::format("nothing can be done as user {}", user.name);
    }
}

} // namespace qv
