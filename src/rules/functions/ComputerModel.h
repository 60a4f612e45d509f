#pragma once

#include <optional>
#include <string>

namespace qv {

/// The kind of computer, as the device registry has it.
struct ComputerModel {
    bool hasExpert = false; ///< whether there is a service of class IOPlatformExpertDevice
    /// Its property "model" up to the first NUL; none if it has no such data.
    std::optional<std::string> model;

    /// Asks the first service of that class.
    [[nodiscard]] static ComputerModel read();
};

} // namespace qv
