#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// Reads a metainfo file (freedesktop.org, AppStream 1.0) piece by piece for the version of one
/// application. The component is that of the application if its `<id>` is the identifier of the
/// desktop entry, with or without `.desktop`, or a `<launchable type="desktop-id">` of it is.
///
/// Refused, as if nothing stood there: what is not well-formed, a DOCTYPE that declares anything,
/// elements that are more than 64 deep, and a tag that is longer than 256 KiB. Memory is bounded by
/// these.
class MetainfoReader {
public:
    /// `desktopID` ends in `.desktop`.
    explicit MetainfoReader(std::string_view desktopID);
    ~MetainfoReader();
    MetainfoReader(const MetainfoReader&) = delete;
    MetainfoReader& operator=(const MetainfoReader&) = delete;
    MetainfoReader(MetainfoReader&&) = delete;
    MetainfoReader& operator=(MetainfoReader&&) = delete;

    /// Returns false once the file is refused: the rest need not be read then.
    [[nodiscard]] bool read(std::string_view piece);
    /// Returns, at the end of the file, the greatest `<release version="...">`, by compareVersions,
    /// of the application's component; none if the file is another application's, names no release
    /// or is refused.
    [[nodiscard]] std::optional<std::string> finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// The version that metainfo gives for a desktop entry: the file of `share/metainfo` or, of older
/// applications, `share/appdata` that tells of it, where `share` is the folder that holds the
/// entry's `applications`. Files that are named like the application are read first. At most 10,000
/// files of a folder are seen, and 64 MiB of all files are read. `root`: as for copiedPath.
[[nodiscard]] std::optional<std::string> versionFromMetainfo(const std::string& entryPath,
                                                             const std::string& root = {});

} // namespace qv
