#pragma once

#include <chrono>
#include <string>

namespace qv {

/// The object of an application by the name that it has on its bus, as the desktop entry format has
/// it: "/org/example/An_App".
[[nodiscard]] std::string objectPathOf(std::string busName);

/// Has the bus at `address` start an application, or bring the one that runs to the front
/// (org.freedesktop.Application.Activate). Empty, or what went wrong. The caller is the user whose
/// bus it is: it lets in nobody else.
[[nodiscard]] std::string activateOnBus(const std::string& address, const std::string& busName,
                                        std::chrono::milliseconds patience);

} // namespace qv
