#pragma once

#include "platform/workspace/applications/ApplicationFolders.h"
#include "platform/workspace/applications/ChangeWatch.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The bundles of some folders: sub-folders that have an information list or the extension "app".
/// Links are none. At most 1,000 sub-folders of a folder are looked at.
class BundleTable {
public:
    void read(const ApplicationFolders& folders, ChangeWatch& watch);
    /// The first with an identifier, given in lower case.
    [[nodiscard]] std::optional<std::string> pathForIdentifier(std::string_view identifier) const;
    /// The first whose folder has a name, with or without ".app"; else the first that is displayed
    /// under it; else the first that is named so.
    [[nodiscard]] std::optional<std::string> pathForName(std::string_view name) const;
    [[nodiscard]] std::vector<InstalledApplication> applications() const;

private:
    friend class BundleFinder;
    struct Record {
        std::string path;
        std::string bundleID;   // empty when there is none
        std::string identifier; // the same in lower case
        std::string displayName;
        std::string name;
    };
    std::vector<Record> records_;
};

} // namespace qv
