#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The version of the installed package (dpkg(1)) that a file or folder belongs to, as its authors
/// count: without the epoch and the revision of the distribution, "2.3" for "1:2.3-4". None for a
/// file that no package has, and on machines without that database. `root`: stands before the path
/// of the database. No program is started; at most 256 MiB of lists of files are read.
[[nodiscard]] std::optional<std::string> packageVersionOfFile(const std::string& path,
                                                              const std::string& root = {});

/// Returns "2.3" for "1:2.3-4".
[[nodiscard]] std::string_view upstreamVersion(std::string_view packageVersion);

} // namespace qv
