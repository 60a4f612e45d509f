#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

namespace qv::imager {

/// Writes the partitions of a compressed image as files "0", "1" and so on into an empty folder.
/// The image is read by confined processes. False, and nothing is written, where the image has
/// anything that only 7-Zip reads; an error where it is damaged.
[[nodiscard]] tl::expected<bool, Error> decodeImage(int image, int folder);

} // namespace qv::imager
