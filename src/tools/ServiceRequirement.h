#pragma once

#include <string>

namespace qv::tools {

/// The requirement that the service of this build demands of its clients, from the same bundle
/// information list that it carries.
[[nodiscard]] std::string serviceRequirement();

} // namespace qv::tools
