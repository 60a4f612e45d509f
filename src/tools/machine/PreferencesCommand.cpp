#include "platform/foundation/plist/PropertyList.h"
#include "platform/preferences/PreferenceFiles.h"
#include "tools/machine/MachineCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

namespace {

PreferencesDomain domainOf(const PreferencesOptions& options) {
    std::string user = options.user.empty() ? std::string(preferences::kCurrentUser) : options.user;
    if (user == "any") {
        user = preferences::kAnyUser;
    }
    std::string host = options.host;
    if (host == "any") {
        host = preferences::kAnyHost;
    } else if (host == "current") {
        host = preferences::kCurrentHost;
    }
    return {options.domain, std::move(user), std::move(host)};
}

} // namespace

Result readPreferences(const PreferencesOptions& options) {
    const auto values = PreferenceFiles().values(domainOf(options));
    if (!values) {
        return failure(ExitStatus::usage, reasonOf(values.error()));
    }
    const std::optional<Value>& all = *values;
    const Value* found = all ? &*all : nullptr;
    if (found != nullptr && options.key) {
        found = found->find(*options.key);
    }
    if (found == nullptr) {
        return failure(ExitStatus::failed,
                       options.key
                           ? fmt::format("{} has no value for \"{}\"", options.domain, *options.key)
                           : fmt::format("{} has no values", options.domain));
    }
    const auto text = options.json
                          ? jsonLine(*found)
                          : PropertyList::dataWithPropertyList(*found, PropertyListFormat::xml);
    if (!text) {
        return failure(ExitStatus::failed, reasonOf(text.error()));
    }
    Terminal::standardOutput().write(*text);
    return ExitStatus::success;
}

} // namespace qv::tools
