#include "platform/foundation/process/worker/Landlock.h"

#include "platform/foundation/os/Descriptor.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <linux/landlock.h>
#include <sys/syscall.h>

namespace qv {

namespace {

// Every right on files that a version of the interface knows: those that are not allowed below are
// refused.
std::uint64_t rightsKnownTo(long version) {
    constexpr unsigned kFirst = 13; // up to the making of symbolic links
    constexpr long kTruncating = 3;
    constexpr long kDeviceControl = 5;
    const unsigned count = version >= kDeviceControl ? kFirst + 3
                           : version >= kTruncating  ? kFirst + 2
                                                     : kFirst + static_cast<unsigned>(version) - 1;
    return (std::uint64_t{1} << count) - 1;
}

} // namespace

std::string keepToFolder(int folder) {
    const long version =
        ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) {
        return {};
    }
    landlock_ruleset_attr handled{};
    handled.handled_access_fs = rightsKnownTo(version);
    landlock_path_beneath_attr below{};
    below.parent_fd = folder;
    below.allowed_access = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_DIR |
                           LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
                           LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SYM;
    const Descriptor rules(static_cast<int>(
        ::syscall(SYS_landlock_create_ruleset, &handled, sizeof handled.handled_access_fs, 0)));
    const bool isKept =
        rules &&
        ::syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &below, 0) == 0 &&
        ::syscall(SYS_landlock_restrict_self, rules.get(), 0) == 0;
    return isKept ? "" : fmt::format("Landlock: {}", strerrordesc_np(errno));
}

} // namespace qv
