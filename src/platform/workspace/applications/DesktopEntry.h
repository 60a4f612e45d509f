#pragma once

#include <tl/expected.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

/// The group `[Desktop Entry]` of a `.desktop` file (freedesktop.org, Desktop Entry 1.5). Texts are
/// UTF-8 without NUL, their escapes (\s \n \t \r \\) undone. A member that the file does not give,
/// or leaves empty, is empty or false.
///
/// Read as desktops read the sloppy files that there are: other groups, unknown keys, comments,
/// blank lines, CR LF, blanks around keys and values and a byte order mark do not matter, booleans
/// may be 1 and 0 or capitalized, and another escape stays as it stands (`\"` in `Exec` is meant
/// for the quoting there). Of a key that comes twice the last value counts. But the keys that
/// decide whether and what is started must not be ambiguous: refused are two values for Type, Exec,
/// TryExec, Path, Terminal, Hidden, DBusActivatable or X-Flatpak, a second group of this name,
/// other values where a boolean belongs, a line in the group that is not a pair, a group header
/// without its bracket, a pair before every group, and bytes that are not UTF-8.
struct DesktopEntry {
    static constexpr std::size_t kLongestFile = std::size_t{1} << 20U; ///< bytes

    std::string type; ///< "Application" for an application; there are also links and folders
    std::string name; ///< not localized
    /// The locale ("de", "sr@latin") and name, each locale once, in the order of the file; at most
    /// 1024.
    std::vector<std::pair<std::string, std::string>> localizedNames;
    std::string exec; ///< a command line in its own quoting; `commandOf` (ExecLine.h) reads it
    std::string
        tryExec;      ///< a program; where it is missing, the application counts as not installed
    std::string path; ///< working directory
    std::string icon;
    std::string flatpakID; ///< X-Flatpak
    bool terminal = false;
    bool hidden = false; ///< the application was deleted
    bool noDisplay = false;
    bool dbusActivatable = false; ///< then `exec` may be empty
    std::string filePath;         ///< as it was given

    [[nodiscard]] bool isApplication() const { return type == "Application"; }

    /// The error: "line N: REASON", or a reason that no line has.
    [[nodiscard]] static tl::expected<DesktopEntry, std::string> parse(std::string_view bytes,
                                                                       std::string filePath);
    /// Reads a file; links are followed, but only a regular file is ever opened, so that nothing
    /// there keeps anybody waiting.
    [[nodiscard]] static tl::expected<DesktopEntry, std::string>
    contentsOfFile(const std::string& path);
    /// The same for a file that is open.
    [[nodiscard]] static tl::expected<DesktopEntry, std::string>
    contentsOfFile(int file, const std::string& path);
};

} // namespace qv
