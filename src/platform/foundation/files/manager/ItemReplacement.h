#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace qv {

/// Makes a fresh folder, for the effective user alone, on the volume of an item that is going to be
/// replaced: in the temporary folder when that is on this volume, else below the volume's root, as
/// `.TemporaryItems/folders.UID/TemporaryItems/(A Document Being Saved By NAME 2)`. Never follows a
/// link there nor uses a folder of another owner. The caller removes it. Errors as the file
/// manager's (files/FileErrors.h).
///
/// `program` is NAME.
[[nodiscard]] tl::expected<URL, Error>
itemReplacementFolder(const std::optional<URL>& appropriateForURL, const std::string& program);

} // namespace qv
