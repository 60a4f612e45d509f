#include "tools/ServiceRequirement.h"

#include "platform/foundation/plist/PropertyList.h"

#include <string_view>

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

std::string serviceRequirement() {
    const std::string_view section(qv_service_info_plist_begin, qv_service_info_plist_end);
    // NOLINTEND(readability-identifier-naming)
    const auto list = PropertyList::propertyListWithData(section);
    const Value* clients = list ? list->root.find("SMAuthorizedClients") : nullptr;
    if (clients == nullptr || !clients->is(Value::Kind::array) || clients->asArray().empty()) {
        return {};
    }
    return std::string(clients->asArray().front().asString());
}

} // namespace qv::tools
