#include "tools/service/RootCommand.h"

#include "codesign/ClientVerification.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/OwnProgram.h"
#include "platform/security/guest/GuestConfiguration.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace qv::tools {

namespace {

// Returns true if this process runs root's copy, which must not start itself again: it would do so
// for ever where the kernel gives nobody the mark, under a tracer for example. The service tells
// what is amiss.
bool isRootCommand(const std::string& path) {
    const Descriptor own = openOwnProgram();
    const Descriptor copy(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return own && copy && identityOf(own.get()) == identityOf(copy.get());
}

} // namespace

std::optional<Failure> becomeAcceptedClient() {
    const std::string program(configuration::kRootCommand);
    if (configuration::kIsDevelopment || isRootCommand(program) ||
        ClientVerification::configuration().clientGroup == ::getegid()) {
        return std::nullopt;
    }
    // The execution closes all descriptors that this process has opened, and a standard descriptor
    // that the caller has closed is occupied again.
    const int error = executeInstead(program);
    return Failure{ExitStatus::notAuthorised,
                   error == ENOENT ? "the service does not accept this program; as root, run "
                                     "`qvcatalog setup` once"
                                   : fmt::format("{}: {}", program, errnoText(error))};
}

} // namespace qv::tools
