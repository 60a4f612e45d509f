#include "platform/applescript/world/objects/FolderPaths.h"

#include "platform/applescript/world/context/FilePaths.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/values/URL.h"
#include "platform/workspace/applications/Patience.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qv::applescript::world {

namespace {

// The folder in a user's home, with its key of user-dirs.dirs, and the one for all users, empty
// where there is none.
struct KnownFolder {
    Term term;
    std::string_view inHome;
    std::string_view key;
    std::string_view local;
    Term usualDomain = Term::userDomain;
};

constexpr std::array kKnownFolders = std::to_array<KnownFolder>({
    {Term::home, "", "", "", Term::userDomain},
    {Term::homeFolder, "", "", "", Term::userDomain},
    {Term::desktop, "Desktop", "XDG_DESKTOP_DIR", "", Term::userDomain},
    {Term::desktopFolder, "Desktop", "XDG_DESKTOP_DIR", "", Term::userDomain},
    {Term::documentsFolder, "Documents", "XDG_DOCUMENTS_DIR", "", Term::userDomain},
    {Term::downloadsFolder, "Downloads", "XDG_DOWNLOAD_DIR", "", Term::userDomain},
    {Term::moviesFolder, "Videos", "XDG_VIDEOS_DIR", "", Term::userDomain},
    {Term::musicFolder, "Music", "XDG_MUSIC_DIR", "", Term::userDomain},
    {Term::picturesFolder, "Pictures", "XDG_PICTURES_DIR", "", Term::userDomain},
    {Term::publicFolder, "Public", "XDG_PUBLICSHARE_DIR", "", Term::userDomain},
    {Term::libraryFolder, ".local/share", "", "/usr/local/share", Term::systemDomain},
    {Term::applicationSupport, ".local/share", "", "/var/lib", Term::systemDomain},
    {Term::applicationSupportFolder, ".local/share", "", "/var/lib", Term::systemDomain},
    {Term::preferences, ".config", "", "/etc", Term::userDomain},
    {Term::preferencesFolder, ".config", "", "/etc", Term::userDomain},
    {Term::fonts, ".local/share/fonts", "", "/usr/local/share/fonts", Term::systemDomain},
    {Term::applicationsFolder, "Applications", "", "/Applications", Term::localDomain},
    {Term::utilitiesFolder, "", "", "/usr/local/bin", Term::localDomain},
    {Term::sharedDocuments, "", "", "/usr/local/share/doc", Term::localDomain},
    {Term::usersFolder, "", "", "/home", Term::localDomain},
    {Term::systemFolder, "", "", "/usr", Term::systemDomain},
    {Term::temporaryItemsFolder, "", "", "/tmp", Term::localDomain},
    {Term::temporaryItems, "", "", "/tmp", Term::localDomain},
    {Term::startupDisk, "", "", "/", Term::localDomain},
    {Term::bootVolume, "", "", "/", Term::localDomain},
});

// The text of the user's own file, or nothing.
std::string userDirectories(WorldContext& context) {
    constexpr std::size_t kLongest = std::size_t{64} << 10U;
    const UserRecord& user = context.user();
    const WorkResult read = context.performAs(
        user,
        [&]() -> WorkResult {
            const Descriptor file = openRegularFile(user.home + "/.config/user-dirs.dirs");
            const auto text = file ? contentOfRegularFile(file.get(), kLongest) : std::nullopt;
            return Value::data(text.value_or(""));
        },
        context.processes->patienceWith(user.user, kPatienceToLook));
    return read && read->is(Value::Kind::data) ? std::string(read->asData()) : std::string();
}

std::string inHome(WorldContext& context, const KnownFolder& folder) {
    const std::string& home = context.user().home;
    if (!folder.key.empty()) {
        constexpr std::string_view kHome = "$HOME";
        for (const auto& [key, value] : assignmentsIn(userDirectories(context))) {
            if (key == folder.key && (value.starts_with("$HOME/") || value.starts_with('/'))) {
                const std::string path =
                    value.starts_with('/') ? value : home + value.substr(kHome.size());
                return std::string(withoutTrailingSlashes(path));
            }
        }
    }
    return folder.inHome.empty() ? home : joined(home, folder.inHome);
}

} // namespace

std::optional<std::string> folderPath(WorldContext& context, Term folder, Term domain) {
    if (folder == Term::trash) {
        const std::optional<std::string> trash = context.trash->homeTrashFolder();
        return trash ? *trash : context.user().home + "/.local/share/Trash/files";
    }
    const auto known = std::ranges::find(kKnownFolders, folder, &KnownFolder::term);
    if (known == kKnownFolders.end()) {
        return std::nullopt;
    }
    if ((domain == Term::none ? known->usualDomain : domain) == Term::userDomain &&
        (known->local.empty() || !known->inHome.empty())) {
        return inHome(context, *known);
    }
    return known->local.empty() ? std::nullopt : std::optional(std::string(known->local));
}

} // namespace qv::applescript::world
