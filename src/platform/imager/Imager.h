#pragma once

#include "platform/foundation/values/Error.h"

#include <string>

namespace qv::imager {

/// Makes the content of a disk image readable at a mount point, an absolute path where nothing is
/// or an empty folder; folders of the default place for volumes are made. Compressed images, file
/// systems and partitioned images are taken. As root the content is mounted, read-only, by the
/// kernel or from what 7-Zip makes of it; otherwise it is a copy.
///
/// It stays until it is detached, or until the parent of this process has ended and another image
/// is attached or detached. An error leaves nothing.
[[nodiscard]] Error attach(const std::string& image, const std::string& mountPoint);

/// Takes away what attach has made for a mount point, the folder too, also where that was killed or
/// files are in use. A mount in the default place for volumes needs no record of it.
[[nodiscard]] Error detach(const std::string& mountPoint);

} // namespace qv::imager
