#include "platform/workspace/launch/BusActivation.h"

#include "platform/workspace/launch/Bus.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstring>

namespace qv {

std::string objectPathOf(std::string busName) {
    std::ranges::replace(busName, '.', '/');
    std::ranges::replace(busName, '-', '_');
    return "/" + busName;
}

std::string activateOnBus(const std::string& address, const std::string& busName,
                          std::chrono::milliseconds patience) {
    const tl::expected<Bus, int> bus = connectToBus(address, BusPeer::broker, patience);
    if (!bus) {
        return fmt::format("the session bus cannot be reached: {}", strerrordesc_np(-bus.error()));
    }
    BusError error;
    sd_bus_message* answer = nullptr;
    const int status = ::sd_bus_call_method(
        bus->get(), busName.c_str(), objectPathOf(busName).c_str(), "org.freedesktop.Application",
        "Activate", error.get(), &answer, "a{sv}", 0);
    const BusMessage owner(answer);
    return status >= 0
               ? std::string()
               : fmt::format("the session bus does not start {}: {}", busName, error.text(status));
}

} // namespace qv
