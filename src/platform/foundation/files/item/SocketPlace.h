#pragma once

#include <string>

namespace qv {

/// The absolute path that a socket of the local domain was bound to; empty where there is none.
[[nodiscard]] std::string socketPath(int socket);

/// Whether a socket stands at an absolute path and a folder holds it, directly or further down.
/// Links and ".." in the path count as what they lead to.
[[nodiscard]] bool isSocketBelow(const std::string& path, const std::string& folder);

} // namespace qv
