#pragma once

#include "platform/foundation/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The version that an application states.
struct ApplicationVersion {
    std::optional<Value> value;
    /// The reason why the list in its resource fork is not valid; that does not keep another source
    /// from answering.
    std::optional<std::string> listFault;
};

/// The value under a key of an application's information dictionary, "CFBundleVersion" or
/// "CFBundleShortVersionString"; the first that there is of
///
///   1. the information dictionary of the bundle at the path,
///   2. the property list in the resource fork of the item (ResourceFork.h),
///   3. for both keys and a desktop entry, its metainfo (Metainfo.h),
///   4. and the package that it belongs to (PackageDatabase.h).
///
/// `path`: a bundle or a desktop entry, below `root` where that is not empty.
[[nodiscard]] ApplicationVersion versionOfApplication(const std::string& path, std::string_view key,
                                                      const std::string& root = {});

} // namespace qv
