#include "platform/foundation/plist/PropertyList.h"
#include "platform/preferences/PreferenceFiles.h"
#include "tools/Commands.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/Terminal.h"

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

ExitStatus readPreferences(const PreferencesOptions& options) {
    const auto values = PreferenceFiles().values(domainOf(options));
    if (!values) {
        complain(reasonOf(values.error()));
        return ExitStatus::usage;
    }
    const std::optional<Value>& all = *values;
    const Value* found = all ? &*all : nullptr;
    if (found != nullptr && options.key) {
        found = found->find(*options.key);
    }
    if (found == nullptr) {
        complain(options.key
                     ? fmt::format("{} has no value for \"{}\"", options.domain, *options.key)
                     : fmt::format("{} has no values", options.domain));
        return ExitStatus::failed;
    }
    const auto text = options.json
                          ? jsonLine(*found)
                          : PropertyList::dataWithPropertyList(*found, PropertyListFormat::xml);
    if (!text) {
        complain(reasonOf(text.error()));
        return ExitStatus::failed;
    }
    if (const Error error = writeOutput("-", *text)) {
        complainAboutFile("-", error);
        return ExitStatus::usage;
    }
    return ExitStatus::success;
}

} // namespace qv::tools
