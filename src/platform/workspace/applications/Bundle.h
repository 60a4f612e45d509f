#pragma once

#include "platform/foundation/files/item/NamedItem.h"
#include "platform/foundation/values/Value.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// A folder seen as a bundle. Its information dictionary is `Contents/Info.plist`,
/// `Resources/Info.plist`, `Info.plist` or `Resources/Info-gnustep.plist`, the first that there is;
/// a list that is too long, no dictionary, or no list at all counts as empty.
class Bundle {
public:
    /// Returns none unless there is a folder at the URL; a link does not count. Links inside are
    /// followed only as far as they stay inside.
    [[nodiscard]] static std::optional<Bundle> bundleWithURL(const NamedItem& item);
    /// The same for a folder that is open; `path` is where it is.
    [[nodiscard]] static Bundle bundleInFolder(int folder, std::string path);
    [[nodiscard]] std::optional<Value> objectForInfoDictionaryKey(std::string_view key) const;
    /// The same where it is a text that is not empty.
    [[nodiscard]] std::optional<std::string> textForInfoDictionaryKey(std::string_view key) const;

    [[nodiscard]] bool hasInfoDictionary() const { return hasInfo_; }
    [[nodiscard]] std::optional<std::string> bundleIdentifier() const; ///< CFBundleIdentifier
    [[nodiscard]] std::optional<std::string> displayName() const;      ///< CFBundleDisplayName
    [[nodiscard]] std::optional<std::string> bundleName() const;       ///< CFBundleName

    /// The program that the bundle is there for, as it is now: a regular file that somebody may
    /// execute, named by CFBundleExecutable, else by NSExecutable, else like the folder without its
    /// extension, in `Contents/Linux`, `Contents/MacOS` or the folder itself, the first that has
    /// it. None also when the name is more than one path component.
    [[nodiscard]] std::optional<std::string> executablePath() const;

private:
    Bundle(std::string path, std::optional<Value> info);
    std::string path_;
    Value info_;
    bool hasInfo_;
};

/// The places of a bundle's information list, in the order in which they are looked for.
inline constexpr std::array<const char*, 4> kInfoLists = {
    "Contents/Info.plist", "Resources/Info.plist", "Info.plist", "Resources/Info-gnustep.plist"};

} // namespace qv
