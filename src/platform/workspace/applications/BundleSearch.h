#pragma once

#include "platform/foundation/files/item/NamedItem.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The path of the first bundle below a folder that has an identifier, in whatever case. Folders
/// are searched depth first, in the order in which the file system lists them, hidden ones too;
/// packages are not searched, links not followed. Folders that cannot be read are passed over. None
/// when there is no such bundle, or no such folder.
[[nodiscard]] std::optional<std::string> findBundle(std::string_view identifier,
                                                    const NamedItem& folder);

} // namespace qv
