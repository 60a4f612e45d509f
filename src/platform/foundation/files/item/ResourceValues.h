#pragma once

#include "platform/foundation/files/item/NamedItem.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/Value.h"

#include <cstdint>
#include <optional>
#include <string_view>

/// The attributes that the file system knows of the item at a file URL; a link is an item itself.
/// None when the item cannot be examined, or the URL names none.
namespace qv::ResourceValues {

/// The root of the volume; see files/Volume.h.
[[nodiscard]] std::optional<URL> volume(const NamedItem& item);
[[nodiscard]] std::optional<bool> isVolume(const NamedItem& item);
/// The size in bytes; of a folder that of its own record.
[[nodiscard]] std::optional<std::uint64_t> fileSize(const NamedItem& item);
[[nodiscard]] std::optional<Date> contentModificationDate(const NamedItem& item);
/// A folder that shows as one item: by its extension, or because it holds the information of a
/// bundle.
[[nodiscard]] std::optional<bool> isPackage(const NamedItem& item);
/// The same of a folder that is open.
[[nodiscard]] bool isPackage(int folder, std::string_view name);

} // namespace qv::ResourceValues
