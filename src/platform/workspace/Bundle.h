#pragma once

#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/Value.h"

#include <optional>
#include <string_view>

namespace qv {

/// A folder seen as a bundle. Its information dictionary is `Contents/Info.plist`,
/// `Resources/Info.plist` or `Info.plist`, the first that there is; a list that is too long, no
/// dictionary, or no list at all counts as empty.
class Bundle {
public:
    /// None unless there is a folder at the URL; a link is none. Links inside are followed only as
    /// far as they stay inside.
    [[nodiscard]] static std::optional<Bundle> bundleWithURL(const std::optional<URL>& url);
    [[nodiscard]] std::optional<Value> objectForInfoDictionaryKey(std::string_view key) const;

private:
    explicit Bundle(Value info) : info_(std::move(info)) {}
    Value info_;
};

} // namespace qv
