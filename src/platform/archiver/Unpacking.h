#pragma once

#include <string>

namespace qv::archiver {

/// Unpacks the ZIP archive that a descriptor gives, to its end, into a folder, an absolute path,
/// which is made if it is missing. The cause of a failure, with the entry where there is one; empty
/// for success.
///
/// The archive is kept in a file without a name on the folder's volume meanwhile. A process of its
/// own parses it, which can neither open files nor become anybody. This one gives up all but
/// writing below the folder, for good: call it last.
[[nodiscard]] std::string unpack(int input, const std::string& folder);

} // namespace qv::archiver
