#pragma once

#include <string>
#include <string_view>

namespace qv {

/// Makes bytes the content of what a person names as a place for them, with or without a link as
/// its last component. A regular file gets a successor in one step, of the same owner, group and
/// mode, or stays as it is; a new one honours the umask. A device or a FIFO is written into. 0 or
/// the errno; an outcome other than 0 leaves no new file.
[[nodiscard]] int writeOutputFile(const std::string& path, std::string_view bytes);

} // namespace qv
