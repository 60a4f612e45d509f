#include "codesign/ClientVerification.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/os/OwnProgram.h"
#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/install/OwnClient.h"
#include "tools/service/ServiceCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace qv::tools {

namespace {

// The administrator's word that there shall be no such client.
std::string refusalPath() {
    return std::filesystem::path(configuration::kClientsFolder).parent_path() / "no-root-command";
}

Result fileFailed(const std::string& path, int error) {
    return failure(ExitStatus::failed, fmt::format("{}: {}", path, errnoText(error)));
}

void showAbsence(const SetupOptions& options, std::string_view reason) {
    Terminal::standardOutput().line(
        options.json ? jsonText(Value::dictionary({{"installed", Value::boolean(false)},
                                                   {"reason", Value::string(reason)}}))
                     : std::string(reason));
}

void showPresence(const SetupOptions& options, const InstalledClient& client,
                  const OwnClient& own) {
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(
            jsonText(Value::dictionary({{"installed", Value::boolean(true)},
                                        {"path", Value::string(client.path)},
                                        {"mode", Value::string(fmt::format("{:o}", client.mode))},
                                        {"identifier", Value::string(client.identifier)},
                                        {"cdhash", Value::string(client.cdhash)},
                                        {"anchor", Value::string(own.anchorPath())},
                                        {"requirement", Value::string(own.requirementPath())}})));
        return;
    }
    out.line("Root can use `qvcatalog run` and `qvcatalog demo` on this machine.");
    out.line(fmt::format("program:     {}, root's alone, cdhash {}", client.path, client.cdhash));
    out.line(fmt::format("anchor:      {}, whose key nobody has", own.anchorPath()));
    out.line(fmt::format("requirement: {}", own.requirementPath()));
}

Result removeOwn(const SetupOptions& options, const OwnClient& own, std::string_view reason) {
    if (const Error error = own.remove()) {
        return signingFailure(error);
    }
    showAbsence(options, reason);
    return ExitStatus::success;
}

Result refuse(const SetupOptions& options, const OwnClient& own) {
    const std::string path = refusalPath();
    if (!options.byPackage) {
        // The file is made first, so that no upgrade brings back what is being taken away.
        const Descriptor file(
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (!file) {
            return fileFailed(path, errno);
        }
    }
    return removeOwn(options, own,
                     options.byPackage ? std::string("Root can no longer use `qvcatalog run`.")
                                       : fmt::format("Root can no longer use `qvcatalog run`; "
                                                     "upgrades heed {}.",
                                                     path));
}

} // namespace

Result setup(const SetupOptions& options) {
    if (configuration::kIsDevelopment) {
        return failure(ExitStatus::failed, "this is a developer's build, whose service accepts "
                                           "what packaging/development/sign has signed");
    }
    if (::geteuid() != 0) {
        return failure(ExitStatus::failed, "only root can set this up");
    }
    const OwnClient::Choices choices{.name = "qvcatalog-command",
                                     .identifier = "com.larkwen.qvcatalog.command",
                                     .team = "QVCATALOG",
                                     .path = std::string(configuration::kRootCommand)};
    const CodeSigningConfiguration configuration = ClientVerification::configuration();
    const OwnClient own(choices, configuration);
    if (options.remove) {
        return refuse(options, own);
    }
    const std::string refusal = refusalPath();
    if (options.byPackage && std::filesystem::exists(refusal)) {
        return removeOwn(options, own, fmt::format("{} is there, so nothing is set up.", refusal));
    }
    if (!configuration.clientGroup) {
        return failure(ExitStatus::failed,
                       fmt::format("{}; install the service first (package qvcatalog-helper)",
                                   ClientVerification::clientGroupReason()));
    }
    const Descriptor program = openOwnProgram();
    if (!program) {
        return fileFailed("this program", errno);
    }
    const auto installed = own.install(program.get());
    if (!installed) {
        return signingFailure(installed.error());
    }
    if (::unlink(refusal.c_str()) != 0 && errno != ENOENT) {
        return fileFailed(refusal, errno);
    }
    showPresence(options, *installed, own);
    return ExitStatus::success;
}

} // namespace qv::tools
