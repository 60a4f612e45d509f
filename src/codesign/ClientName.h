#pragma once

#include <string>

namespace qv {

/// The names of an accepted client in records.
struct ClientName {
    std::string name;       ///< of the allowed client, or "built in"
    std::string identifier; ///< the identifier that its program is signed with
    std::string team;
    std::string codeHash; ///< of its code directory, hexadecimal
};

} // namespace qv
