#pragma once

#include <optional>
#include <string>

namespace qv {

/// What the device registry tells of the kind of computer.
struct ComputerModel {
    bool hasExpert = false; ///< whether there is a service of class IOPlatformExpertDevice
    /// Its property "model" up to the first NUL; none if it has no such data.
    std::optional<std::string> model;

    /// Asks the first service of that class.
    [[nodiscard]] static ComputerModel read();
};

} // namespace qv
