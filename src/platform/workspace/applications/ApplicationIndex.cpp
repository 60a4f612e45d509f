#include "platform/workspace/applications/ApplicationIndex.h"

#include "platform/workspace/applications/FoldedText.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace qv {

ApplicationIndex::ApplicationIndex(const std::vector<ApplicationFolders>& sets,
                                   std::string_view programPath)
    : programPath_(std::make_unique<const std::string>(programPath)) {
    for (const ApplicationFolders& folders : sets) {
        sets_.push_back({folders, {}, EntryTable(*programPath_)});
    }
}

void ApplicationIndex::refresh() {
    if (wasRead_ && !watch_.hasChanged()) {
        return;
    }
    watch_.beginReading();
    for (Set& set : sets_) {
        set.bundles.read(set.folders, watch_);
        set.entries.list(set.folders, watch_);
    }
    watch_.endReading();
    wasRead_ = true;
}

EntryTable::Answer ApplicationIndex::withIdentifier(std::string_view identifier) {
    refresh();
    for (Set& set : sets_) {
        std::optional<std::string> bundle = set.bundles.pathForIdentifier(folded(identifier));
        if (bundle) {
            return {.isTaken = true, .path = std::move(bundle)};
        }
        EntryTable::Answer answer = set.entries.withIdentifier(identifier);
        if (answer.isTaken) {
            return answer;
        }
        set.entries.readContents();
        std::optional<std::string> flatpak = set.entries.pathForFlatpakID(identifier);
        if (flatpak) {
            return {.isTaken = true, .path = std::move(flatpak)};
        }
    }
    return {};
}

std::optional<std::string> ApplicationIndex::pathForName(std::string_view name) {
    refresh();
    for (Set& set : sets_) {
        std::optional<std::string> path = set.bundles.pathForName(name);
        if (path) {
            return path;
        }
        set.entries.readContents();
        path = set.entries.pathForName(name);
        if (path) {
            return path;
        }
    }
    return std::nullopt;
}

std::vector<InstalledApplication> ApplicationIndex::applications() {
    refresh();
    std::vector<InstalledApplication> applications;
    for (const Set& set : sets_) {
        std::ranges::move(set.bundles.applications(), std::back_inserter(applications));
        std::ranges::move(set.entries.applications(), std::back_inserter(applications));
    }
    std::erase_if(applications, [&](const InstalledApplication& application) {
        return (application.identifier.empty()
                    ? pathForName(application.name)
                    : pathForIdentifier(application.identifier)) != application.path;
    });
    std::ranges::sort(applications, [](const auto& left, const auto& right) {
        return std::tie(left.identifier, left.name, left.path) <
               std::tie(right.identifier, right.name, right.path);
    });
    return applications;
}

} // namespace qv
