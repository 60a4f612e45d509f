#include "support/InstalledPrograms.h"

#include "platform/security/guest/GuestCode.h"
#include "support/BuildFolder.h"

#include <fstream>
#include <linux/magic.h>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <system_error>
#include <unistd.h>

namespace qv::test {

InstalledPrograms::InstalledPrograms() {
    install(folder_.path(), 0, 0, 0755);
    authority_.anchorIn(folder_ / "anchors");
}

CodeSigningConfiguration InstalledPrograms::configuration() const {
    struct statfs info{};
    if (::statfs(folder_.path().c_str(), &info) != 0) {
        throw std::system_error(errno, std::generic_category(), "statfs");
    }
    return {.anchorsDirectory = folder_ / "anchors",
            .clientGroup = kClientGroup,
            .developmentAnchors = true,
            .allowTemporaryFileSystems = info.f_type == TMPFS_MAGIC,
            .lookupTime = std::chrono::minutes(1)};
}

std::filesystem::path InstalledPrograms::unsignedClient(std::string_view name) {
    const std::filesystem::path program = folder_ / name;
    std::filesystem::copy_file(built("bin/qv_sample_client"), program);
    install(program, 0, 0, 0755);
    return program;
}

std::filesystem::path InstalledPrograms::signedClient(std::string_view name, std::uint32_t flags) {
    return sign(name, flags, authority_.requestIn(folder_ / "keys"));
}

std::filesystem::path InstalledPrograms::markedClient(std::string_view name, std::uint32_t flags) {
    const std::filesystem::path program = signedClient(name, flags);
    install(program, 0, kClientGroup, 02755);
    return program;
}

std::filesystem::path InstalledPrograms::debuggableClient(std::string_view name) {
    SigningRequest request = authority_.requestIn(folder_ / "keys");
    request.entitlements =
        Value::dictionary({{"com.apple.security.get-task-allow", Value::boolean(true)}});
    request.allowDebuggableDistribution = true;
    return sign(name, 0, std::move(request));
}

std::filesystem::path InstalledPrograms::strangersClient(std::string_view name,
                                                         std::uint32_t flags) {
    return sign(name, flags, stranger_.requestIn(folder_ / "strangers-keys"));
}

bool InstalledPrograms::ignoresSetGroup() const {
    struct statvfs info{};
    return ::statvfs(folder_.path().c_str(), &info) != 0 || (info.f_flag & ST_NOSUID) != 0;
}

std::filesystem::path InstalledPrograms::sign(std::string_view name, std::uint32_t flags,
                                              SigningRequest request) {
    const std::filesystem::path program = unsignedClient(name);
    request.flags = flags;
    if (const auto done = CodeSigner::sign(program, request); !done) {
        throw std::runtime_error(done.error().description());
    }
    return program;
}

tl::expected<std::shared_ptr<const SecCode>, Error> programOf(const ClientProcess& client,
                                                              GuestServices& services) {
    GuestServices::Answer answer = services.lookUp(client.identity());
    if (auto* refusal = std::get_if<Error>(&answer)) {
        return tl::unexpected(std::move(*refusal));
    }
    return std::get<std::shared_ptr<const GuestCode>>(std::move(answer));
}

void install(const std::filesystem::path& file, uid_t user, gid_t group, mode_t mode) {
    // The mode last: a change of owner takes the set-group-id bit away.
    if (::chown(file.c_str(), user, group) != 0 || ::chmod(file.c_str(), mode) != 0) {
        throw std::system_error(errno, std::generic_category(), file);
    }
}

void changeOneByte(const std::filesystem::path& program) {
    constexpr std::string_view kText = "QVCHANGEABLE";
    std::string content = contentOf(program);
    content.at(content.find(kText)) = 'q';
    std::ofstream(program, std::ios::binary | std::ios::in | std::ios::out) << content;
}

} // namespace qv::test
