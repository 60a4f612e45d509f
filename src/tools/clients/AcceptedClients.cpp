#include "tools/clients/AcceptedClients.h"

#include "platform/foundation/configuration/Configuration.h"
#include "platform/security/install/AllowedClients.h"

#include <utility>

namespace qv::tools {

tl::expected<AcceptedClients, RequirementError>
acceptedClients(const CodeSigningConfiguration& configuration) {
    auto builtIn = Requirement::compile(configuration::kAuthorizedClients);
    if (!builtIn) {
        return tl::unexpected(builtIn.error());
    }
    AcceptedClients accepted{.names = {std::string(AcceptedClients::kBuiltIn)},
                             .requirements = {std::move(*builtIn)},
                             .reason = {}};
    const auto list =
        AllowedClients(configuration.clientsDirectory, configuration.anchorOwner).current();
    for (const AllowedClient& client : list->clients) {
        accepted.names.push_back(client.name);
        accepted.requirements.push_back(client.requirement);
    }
    accepted.reason = list->reason;
    return accepted;
}

} // namespace qv::tools
