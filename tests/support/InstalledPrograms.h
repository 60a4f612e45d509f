#pragma once

#include "platform/security/guest/GuestServices.h"
#include "support/ClientProcess.h"
#include "support/TemporaryDirectory.h"
#include "support/TestAuthority.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace qv::test {

inline constexpr gid_t kClientGroup = 47110; ///< no such group need exist

/// A folder of SampleClients in all conditions, and the anchors that vouch for one authority. Needs
/// root.
class InstalledPrograms {
public:
    InstalledPrograms();

    /// The anchors of `authority`, the group kClientGroup, and tmpfs allowed if the folder is
    /// there.
    [[nodiscard]] CodeSigningConfiguration configuration() const;

    /// A SampleClient as built, owned by root, mode 0755.
    std::filesystem::path unsignedClient(std::string_view name);
    std::filesystem::path signedClient(std::string_view name, std::uint32_t flags);
    /// A client as installed: set-group-id to the client group.
    std::filesystem::path markedClient(std::string_view name, std::uint32_t flags);
    std::filesystem::path debuggableClient(std::string_view name);
    /// A client signed with the same names, but with keys of its own.
    std::filesystem::path strangersClient(std::string_view name, std::uint32_t flags);

    /// Whether set-group-id means nothing where the folder stands.
    [[nodiscard]] bool ignoresSetGroup() const;

    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return folder_ / name;
    }

private:
    std::filesystem::path sign(std::string_view name, std::uint32_t flags, SigningRequest request);

    TemporaryDirectory folder_;
    TestAuthority authority_;
    TestAuthority stranger_;
};

/// The program of a client as the service looks it up: as the peer of its connection.
[[nodiscard]] tl::expected<std::shared_ptr<const SecCode>, Error>
programOf(const ClientProcess& client, GuestServices& services);

/// Gives a file to somebody.
void install(const std::filesystem::path& file, uid_t user, gid_t group, mode_t mode);

/// Changes one byte of a program that was to be changed without changing what it does.
void changeOneByte(const std::filesystem::path& program);

} // namespace qv::test
