#include "platform/workspace/applications/ApplicationFolders.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <unistd.h>

namespace qv {

namespace {

constexpr unsigned kTwoLevels = 2;

constexpr std::string_view kEntries = "/applications";
constexpr std::string_view kSystemData =
    "/usr/local/share:/usr/share:/var/lib/flatpak/exports/share:/var/lib/snapd/desktop";

std::vector<std::string> entryFolders(std::string_view dataFolders) {
    std::vector<std::string> folders;
    while (!dataFolders.empty()) {
        std::string_view folder = dataFolders.substr(0, dataFolders.find(':'));
        dataFolders.remove_prefix(std::min(folder.size() + 1, dataFolders.size()));
        if (folder.starts_with('/')) {
            while (folder.ends_with('/')) {
                folder.remove_suffix(1);
            }
            folders.push_back(std::string(folder).append(kEntries));
        }
    }
    return folders;
}

std::string variable(const char* name) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
    const char* value = ::secure_getenv(name);
    return value == nullptr ? "" : value;
}

} // namespace

ApplicationFolders sharedApplicationFolders(const std::string& root) {
    ApplicationFolders folders;
    folders.root = root;
    folders.bundles = {{root + "/Applications"},
                       {root + "/usr/local/Applications"},
                       {root + "/opt", kTwoLevels},
                       {root + "/usr/lib/GNUstep/Applications"}};
    for (const std::string& folder : entryFolders(kSystemData)) {
        folders.entries.push_back(root + folder);
    }
    return folders;
}

std::vector<ApplicationFolders> applicationFoldersFor(const UserRecord& user) {
    std::vector<ApplicationFolders> sets{sharedApplicationFolders(), {}};
    if (user.home.starts_with('/')) {
        sets[1].bundles = {{user.home + "/Applications"}};
        sets[1].entries = {user.home + "/.local/share/applications",
                           user.home + "/.local/share/flatpak/exports/share/applications"};
    }
    return sets;
}

std::vector<ApplicationFolders> ownApplicationFolders() {
    const uid_t self = ::geteuid();
    const UserRecord user = userRecord(self).value_or(UserRecord());
    if (self == 0 || self != ::getuid()) {
        return applicationFoldersFor(user);
    }
    ApplicationFolders folders;
    folders.bundles = {{"/Applications"}, {"/usr/local/Applications"}};
    if (user.home.starts_with('/')) {
        folders.bundles.push_back({user.home + "/Applications"});
    }
    folders.bundles.push_back({"/opt", kTwoLevels});
    folders.bundles.push_back({"/usr/lib/GNUstep/Applications"});
    std::string home = variable("XDG_DATA_HOME");
    if (!home.starts_with('/') && user.home.starts_with('/')) {
        home = user.home + "/.local/share";
    }
    std::string rest = variable("XDG_DATA_DIRS");
    if (rest.empty()) {
        rest = home.empty() ? "" : home + "/flatpak/exports/share:";
        rest += kSystemData;
    }
    folders.entries = entryFolders(home);
    std::ranges::move(entryFolders(rest), std::back_inserter(folders.entries));
    return {std::move(folders)};
}

} // namespace qv
