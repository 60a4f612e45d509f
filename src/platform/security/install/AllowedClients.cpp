#include "platform/security/install/AllowedClients.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/security/guarded/GuardedFiles.h"

#include <fmt/core.h>
#include <tl/expected.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

namespace qv {

namespace {

// Names stand in the log and on terminals.
bool isName(std::string_view name) {
    return !name.empty() && isLetterOrDigit(name.front()) && std::ranges::all_of(name, [](char c) {
        return isLetterOrDigit(c) || c == '.' || c == '_' || c == '-';
    });
}

GuardedFiles::Outcome<Requirement> requirementOf(const std::string& text, const std::string& path) {
    const auto fault = [&](const RequirementError& error) {
        return GuardedPath::fault(path, error.description());
    };
    const auto own = Requirement::compile(text);
    if (!own) {
        return fault(own.error());
    }
    // A signature needs no anchor to be intact: anybody can make an authority of his own.
    auto anchored = Requirement::compile(
        fmt::format("(anchor apple generic or anchor trusted) and ({})", own->text()));
    if (!anchored) {
        return fault(anchored.error());
    }
    return std::move(*anchored);
}

GuardedFiles::Outcome<std::vector<AllowedClient>> readClients(GuardedFiles& files) {
    const auto folder = files.enter();
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    const auto items = GuardedFiles::itemsIn(folder->get(), files.folder());
    if (!items) {
        return tl::unexpected(items.error());
    }
    std::vector<AllowedClient> clients;
    for (const GuardedFiles::Item& item : *items) {
        std::string_view name = item.name;
        if (!name.ends_with(AllowedClients::kSuffix)) {
            return GuardedPath::fault(
                item.path, fmt::format("does not end in \"{}\"", AllowedClients::kSuffix));
        }
        name.remove_suffix(AllowedClients::kSuffix.size());
        if (!isName(name)) {
            return GuardedPath::fault(
                item.path, "has a name of other characters than letters, digits, . _ and -");
        }
        const auto content = files.contentOf(folder->get(), item);
        if (!content) {
            return tl::unexpected(content.error());
        }
        auto requirement = requirementOf(*content, item.path);
        if (!requirement) {
            return tl::unexpected(requirement.error());
        }
        clients.push_back({std::string(name), std::move(*requirement)});
    }
    return clients;
}

WatchedContent<AllowedClients::List>::Reading readList(const std::string& folder,
                                                       uid_t allowedOwner) {
    GuardedFiles files(folder, allowedOwner);
    auto clients = readClients(files);
    const bool isFault = !clients && !files.isMissing();
    return {.content = std::make_shared<const AllowedClients::List>(AllowedClients::List{
                .clients = clients ? std::move(*clients) : std::vector<AllowedClient>(),
                .reason = isFault ? clients.error() : std::string()}),
            .paths = files.takePaths(),
            .mayBeKept = !isFault};
}

} // namespace

AllowedClients::AllowedClients(std::string folder, uid_t allowedOwner, Clock clock)
    : folder_(std::move(folder)), allowedOwner_(allowedOwner), list_(std::move(clock)) {}

std::shared_ptr<const AllowedClients::List> AllowedClients::current() const {
    return list_.current([this] { return readList(folder_, allowedOwner_); });
}

} // namespace qv
