#pragma once

#include "platform/foundation/values/URL.h"
#include "platform/workspace/launch/ApplicationStart.h"

#include <tl/expected.hpp>

#include <optional>

namespace qv {

/// What is at a URL, as WorkspaceService::launchApplicationAtURL takes and refuses it. Looks only.
[[nodiscard]] tl::expected<ApplicationStart, Error>
resolveApplication(const std::optional<URL>& url);

} // namespace qv
