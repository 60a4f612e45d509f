#pragma once

#include <optional>
#include <string>

namespace qv {

/// Whether a link at the end of a path is followed.
enum class CopiedLink : unsigned char { follow, keep };

/// The place of an item in a copy of another machine's files: `path`, which begins with the copy's
/// folder `root`, with its links resolved as that machine resolves them. Neither a link nor ".."
/// leads out of the copy. Slashes at the end do not count. None, and errno, if the item cannot be
/// reached. With an empty `root`, which stands for this machine, `path` itself.
[[nodiscard]] std::optional<std::string> copiedPath(const std::string& root, std::string path,
                                                    CopiedLink last = CopiedLink::follow);

} // namespace qv
