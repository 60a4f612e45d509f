#pragma once

#include <string_view>

namespace qv::tools {

/// The text of examples/first-script.json.
extern const std::string_view kFirstScript;

} // namespace qv::tools
