#include "tools/AcceptedClients.h"

#include "codesign/ClientVerification.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/security/guest/GuestConfiguration.h"
#include "platform/security/install/AllowedClients.h"

#include <utility>

asm(".pushsection .rodata\n"
    "qv_service_info_plist_begin:\n"
    ".incbin \"" QV_INFO_PLIST "\"\n"
    "qv_service_info_plist_end:\n"
    ".popsection\n");

// The labels above.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {
extern const char qv_service_info_plist_begin[];
extern const char qv_service_info_plist_end[];
}

namespace qv::tools {

namespace {

// From the same bundle information list that the service carries.
std::string builtInRequirement() {
    const std::string_view section(qv_service_info_plist_begin, qv_service_info_plist_end);
    // NOLINTEND(readability-identifier-naming)
    const auto list = PropertyList::propertyListWithData(section);
    const Value* clients = list ? list->root.find("SMAuthorizedClients") : nullptr;
    if (clients == nullptr || !clients->is(Value::Kind::array) || clients->asArray().empty()) {
        return {};
    }
    return std::string(clients->asArray().front().asString());
}

} // namespace

tl::expected<AcceptedClients, RequirementError> acceptedClients() {
    auto builtIn = Requirement::compile(builtInRequirement());
    if (!builtIn) {
        return tl::unexpected(builtIn.error());
    }
    AcceptedClients accepted{.names = {std::string(AcceptedClients::kBuiltIn)},
                             .requirements = {std::move(*builtIn)},
                             .reason = {}};
    const CodeSigningConfiguration configuration = ClientVerification::configuration();
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
