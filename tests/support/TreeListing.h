#pragma once

#include <filesystem>
#include <string>

namespace qv::test {

/// The listing of a tree by find(1): a line for each item with its path in the tree, kind, mode,
/// owner, size, date of change and target; sizes of folders left out. Sorted.
[[nodiscard]] std::string listingOf(const std::filesystem::path& root);

} // namespace qv::test
