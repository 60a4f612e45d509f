#pragma once

#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <string>

namespace qv::imager {

/// The content of an image: a mount without a place yet, or a folder.
struct ImageContent {
    Descriptor mount;
    std::string folder; ///< where there is no mount: an absolute path
};

/// Decodes an image, open for reading, as far as it takes. Content that has to be unpacked goes
/// into a work folder, which is made for it and stays; the mount may need it.
[[nodiscard]] tl::expected<ImageContent, Error> openContent(int image, const ItemPlace& workFolder);

} // namespace qv::imager
