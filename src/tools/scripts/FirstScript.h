#pragma once

#include <string_view>

namespace qv::tools {

/// The text of examples/first-script.json.
extern const std::string_view kFirstScript;
/// The script of examples/demo.json, in the folder kDemoFolder.
extern const std::string_view kDemoScript;
inline constexpr std::string_view kDemoFolder = "/opt/qvcatalog-demo";

} // namespace qv::tools
