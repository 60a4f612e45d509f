#include "codesign/ClientVerification.h"
#include "platform/foundation/log/Log.h"
#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/install/ClientInstaller.h"
#include "platform/security/requirement/Requirement.h"
#include "tools/clients/AcceptedClients.h"
#include "tools/clients/ClientCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

namespace {

void show(const InstalledClient& client, bool json) {
    Terminal& out = Terminal::standardOutput();
    const std::string path = log::foreign(client.path);
    if (json) {
        out.line(
            jsonText(Value::dictionary({{"installed", Value::boolean(true)},
                                        {"path", Value::string(path)},
                                        {"owner", Value::integer(0)},
                                        {"group", Value::unsignedInteger(client.group)},
                                        {"mode", Value::string(fmt::format("{:o}", client.mode))},
                                        {"identifier", Value::string(client.identifier)},
                                        {"team", Value::string(client.team)},
                                        {"cdhash", Value::string(client.cdhash)}})));
        return;
    }
    out.line(fmt::format("{}: installed as a client", path));
    out.line(fmt::format("owner: root, group: {}, mode: {:o}", client.group, client.mode));
    out.line(fmt::format("identifier: {}", log::foreign(client.identifier)));
    out.line(fmt::format("cdhash: {}", client.cdhash));
}

} // namespace

Result installClient(const InstallClientOptions& options) {
    const auto clients = acceptedClients();
    if (!clients) {
        return failure(ExitStatus::failed, clients.error().description());
    }
    const InstallRequest request{
        .source = options.file,
        .destination = options.destination,
        .sufficientFlags = {kSufficientFlags.begin(), kSufficientFlags.end()},
        .whyNoGroup = ClientVerification::clientGroupReason()};
    const auto installed = ClientInstaller::install(request, clients->requirements,
                                                    ClientVerification::configuration());
    if (installed) {
        show(*installed, options.json);
        return ExitStatus::success;
    }
    return signingFailure(installed.error());
}

} // namespace qv::tools
