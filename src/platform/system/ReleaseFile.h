#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// Major, minor and patch number of an operating system.
using SystemVersion = std::array<std::int32_t, 3>;

/// The distribution's release file (os-release(5)): /etc/os-release, else /usr/lib/os-release.
///
/// Each line assigns a value to a name, as in a shell: the value may stand in single or double
/// quotes, in double quotes a backslash takes the meaning from `"`, `$`, `\` and `` ` ``. The last
/// assignment counts. Blank lines, comments, CR LF and lines that are not assignments do not
/// matter.
class ReleaseFile {
public:
    /// Reads the file below `root`, which is empty for this machine. A file that is missing, longer
    /// than 1 MiB or not a regular one counts as empty.
    [[nodiscard]] static ReleaseFile read(const std::string& root = {});
    [[nodiscard]] static ReleaseFile parse(std::string_view text);

    /// Returns none for a name that is not assigned, or with an empty value.
    [[nodiscard]] std::optional<std::string> value(std::string_view name) const;

    /// VERSION_ID: its first three numbers, with dots between them; the first that is missing, or
    /// does not end at a dot, ends them, and those behind it are 0. "12" is 12.0.0, "22.04.3" is
    /// 22.4.3, "9.3-beta" is 9.3.0; a distribution without the number is 0.0.0.
    [[nodiscard]] SystemVersion version() const;

private:
    std::map<std::string, std::string, std::less<>> values_;
};

} // namespace qv
