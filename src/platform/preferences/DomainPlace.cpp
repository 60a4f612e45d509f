#include "platform/preferences/DomainPlace.h"

#include "platform/preferences/PreferenceError.h"

#include <fmt/core.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace qv::preferences {

namespace {

constexpr std::string_view kNoPlace = "preferences";
constexpr std::string_view kUsersFolder = ".config";
constexpr std::string_view kHostsFolder = "ByHost";
constexpr mode_t kForAll = 0755;
constexpr mode_t kForOwner = 0700;

tl::unexpected<Error> refused(int errorNumber, std::string_view cause) {
    return tl::unexpected(failureAt(kNoPlace, errorNumber, cause));
}

// The kernel's word: the name that its starter has given a program is the starter's invention.
std::string runningProgram() {
    std::error_code unreadable;
    std::string name =
        std::filesystem::read_symlink("/proc/self/exe", unreadable).filename().native();
    constexpr std::string_view kReplaced = " (deleted)";
    if (name.ends_with(kReplaced)) {
        name.resize(name.size() - kReplaced.size());
    }
    return name;
}

std::string domainName(const std::string& applicationID) {
    if (applicationID == kAnyApplication) {
        return ".GlobalPreferences";
    }
    return applicationID == kCurrentApplication ? runningProgram() : applicationID;
}

bool isComponent(std::string_view name) {
    constexpr std::string_view kNever("/\0", 2);
    return !name.empty() && name.find_first_of(kNever) == std::string_view::npos;
}

Error goToUser(const UserRecord& user, DomainPlace& place) {
    if (!user.home.starts_with('/')) {
        return failureAt(kNoPlace, ENOENT, fmt::format("the user \"{}\" has no home", user.name));
    }
    place.base = user.home;
    place.folders = {std::string(kUsersFolder)};
    return {};
}

Error goToCurrentUser(const PreferenceEnvironment& environment, DomainPlace& place) {
    // The environment of a privileged process may be another user's.
    const bool isHeeded = environment.heedsConfigHome && ::geteuid() != 0;
    const char* const chosen = isHeeded ? ::secure_getenv("XDG_CONFIG_HOME") : nullptr;
    if (chosen != nullptr && *chosen == '/') {
        place.base = chosen;
        place.baseMode = kForOwner;
        return {};
    }
    const std::optional<UserRecord> user = environment.userNumbered(::geteuid());
    return user ? goToUser(*user, place)
                : failureAt(kNoPlace, ENOENT,
                            fmt::format("the user database does not know user {}", ::geteuid()));
}

Error goToNamedUser(const std::string& name, const PreferenceEnvironment& environment,
                    DomainPlace& place) {
    const bool canBeAsked = name.find('\0') == std::string::npos;
    const std::optional<UserRecord> user = canBeAsked ? environment.userNamed(name) : std::nullopt;
    if (!user) {
        return failureAt(kNoPlace, ENOENT, fmt::format("there is no user \"{}\"", name));
    }
    if (user->user != ::geteuid()) {
        place.otherUser = user;
    }
    return goToUser(*user, place);
}

Error goTo(const std::string& user, const PreferenceEnvironment& environment, DomainPlace& place) {
    if (user == kCurrentUser) {
        return goToCurrentUser(environment, place);
    }
    if (user != kAnyUser) {
        return goToNamedUser(user, environment, place);
    }
    place.base = environment.anyUserFolder;
    place.baseMode = kForAll;
    place.folderMode = kForAll;
    place.fileMode = 0644;
    return {};
}

} // namespace

std::string DomainPlace::folderPath(std::size_t count) const {
    std::string path = base;
    for (std::size_t i = 0; i < count; ++i) {
        path += (path.ends_with('/') ? "" : "/") + folders[i];
    }
    return path;
}

std::string DomainPlace::path() const {
    const std::string folder = folderPath(folders.size());
    return folder + (folder.ends_with('/') ? "" : "/") + fileName;
}

tl::expected<DomainPlace, Error> placeOf(const PreferencesDomain& domain,
                                         const PreferenceEnvironment& environment) {
    if (!domain.applicationID || !domain.userName || !domain.hostName) {
        return refused(EINVAL, "the application, the user or the host is missing");
    }
    const std::string name = domainName(*domain.applicationID);
    if (!isComponent(name) || name == "." || name == "..") {
        return refused(EINVAL, fmt::format("\"{}\" cannot be the name of an application", name));
    }
    const std::string& host = *domain.hostName;
    if (!isComponent(host) || host.starts_with('.')) {
        return refused(EINVAL, fmt::format("\"{}\" cannot be the name of a host", host));
    }
    DomainPlace place;
    if (host == kCurrentHost) {
        // The layout has the host's identifier between two dots, which is empty on Linux.
        place.fileName = name + (*domain.userName == kAnyUser ? ".plist" : "..plist");
    } else {
        place.fileName = host == kAnyHost ? name + ".plist" : name + "." + host + ".plist";
    }
    if (place.fileName.size() > NAME_MAX) {
        return refused(ENAMETOOLONG, "the file name of the domain would pass 255 bytes");
    }
    if (Error error = goTo(*domain.userName, environment, place)) {
        return tl::unexpected(std::move(error));
    }
    if (host == kCurrentHost) {
        place.folders.emplace_back(kHostsFolder);
    }
    return place;
}

} // namespace qv::preferences
