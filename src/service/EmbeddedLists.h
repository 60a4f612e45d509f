#pragma once

#include "platform/foundation/values/Value.h"

#include <string_view>

namespace qv {

/// The bundle information list that this program carries in its section `__info_plist`: the bytes
/// as they stand in the running image.
[[nodiscard]] std::string_view infoPlistSection() noexcept;

/// The job description in its section `__launchd_plist`.
[[nodiscard]] std::string_view launchdPlistSection() noexcept;

/// What the bundle information list says; an empty dictionary when it says nothing.
[[nodiscard]] Value infoDictionary();

} // namespace qv
