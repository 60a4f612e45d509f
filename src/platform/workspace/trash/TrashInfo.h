#pragma once

#include <string>
#include <string_view>

namespace qv {

/// The name that an item gets in a trash at the first, second, ... attempt: "a.txt", "a.2.txt".
/// Short enough for its info file.
[[nodiscard]] std::string trashName(std::string_view name, int attempt);

/// The content of an item's info file: where it was, and when it was trashed. The path is relative
/// to the volume's root; absolute when
/// that is empty, as in the home trash, or when the path is not below it.
[[nodiscard]] std::string trashInfoText(std::string_view path, std::string_view volumeRoot);

/// Makes the info file of an item and syncs it. 0, or the error number: EEXIST when the name is
/// taken.
[[nodiscard]] int writeTrashInfo(int infoFolder, const std::string& name, std::string_view text);
void removeTrashInfo(int infoFolder, const std::string& name) noexcept;

} // namespace qv
