#pragma once

#include "platform/applescript/values/ScriptValue.h"
#include "platform/applescript/world/context/WorldContext.h"
#include "platform/foundation/os/Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace qv::applescript::world {

/// An item of the file system that was looked at. A link is an item itself.
struct FileFacts {
    std::string path;
    struct statx info{};
    bool isFolder = false; ///< a link to a folder is one
    bool isLink = false;
    bool isPackage = false; ///< a folder that shows as one item
    bool isDisk = false;    ///< something is mounted there
    bool isApplication = false;

    /// Returns none if there is nothing at the path, or it must not be looked at.
    [[nodiscard]] static std::optional<FileFacts> of(const std::string& path);
    /// Whether it is one of `folder`, `file`, `disk` and the like.
    [[nodiscard]] bool is(Term type) const;
    /// The class as `class of` tells it.
    [[nodiscard]] Term type() const;
};

/// The property of an item that has this name. None for a property that items do not
/// have; missing value for one that this item does not have.
[[nodiscard]] std::optional<ScriptValue> filePropertyOf(WorldContext& context,
                                                        const FileFacts& facts, Term property);

/// `info for`, and `properties of` an item.
[[nodiscard]] ScriptValue fileInformation(WorldContext& context, const FileFacts& facts);

/// The names of what is in a folder, in the order of a file browser. Throws if it cannot be listed.
[[nodiscard]] std::vector<std::string> namesInFolder(const std::string& path, bool withHidden);

/// An integer as scripts have it, or a real beyond.
[[nodiscard]] ScriptValue numberValue(std::int64_t number);
/// Seconds since 1970 on the local clock.
[[nodiscard]] double localSeconds(std::int64_t secondsSince1970);

} // namespace qv::applescript::world
