#pragma once

#include "platform/workspace/applications/ApplicationIndex.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace qv::test {

/// Folders of applications, and an index of them: two sets, the second one a user's. Paths are
/// below the test's folder.
class Applications : public testing::Test {
protected:
    /// A desktop entry `id` (with sub-folders) of a data folder.
    void entry(const std::string& data, std::string_view id, std::string_view more = "",
               std::string_view name = "Some") const {
        folder_.write(
            fmt::format("{}/applications/{}.desktop", data, id),
            fmt::format("[Desktop Entry]\nType=Application\nName={}\nExec=sh\n{}\n", name, more));
    }
    void bundle(const std::string& path, std::string_view list,
                const char* place = "Contents/Info.plist") const {
        folder_.write(path + "/" + place, list);
    }
    std::string byID(std::string_view identifier) {
        return shown(index_.pathForIdentifier(identifier));
    }
    std::string byName(std::string_view name) { return shown(index_.pathForName(name)); }
    [[nodiscard]] std::string shown(const std::optional<std::string>& path) const {
        return path ? std::filesystem::path(*path).lexically_relative(folder_.path()).native()
                    : "none";
    }
    [[nodiscard]] std::vector<ApplicationFolders> sets() const {
        const std::string at = folder_.path().native() + "/";
        return {{.bundles = {{at + "Applications"}, {at + "opt", 2}},
                 .entries = {at + "local/applications", at + "share/applications"}},
                {.bundles = {{at + "home/Applications"}}, .entries = {at + "home/applications"}}};
    }
    TemporaryDirectory folder_;
    ApplicationIndex index_{sets()};
};

} // namespace qv::test
