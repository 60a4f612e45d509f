#include "platform/workspace/launch/Bus.h"

#include <cstring>

namespace qv {

std::string BusError::text(int status) const {
    return error_.message != nullptr ? error_.message : strerrordesc_np(-status);
}

tl::expected<Bus, int> connectToBus(const std::string& address, BusPeer peer,
                                    std::chrono::microseconds patience) {
    sd_bus* made = nullptr;
    if (const int status = ::sd_bus_new(&made); status < 0) {
        return tl::unexpected(status);
    }
    Bus bus(made);
    const auto microseconds = static_cast<std::uint64_t>(patience.count());
    for (const int status :
         {::sd_bus_set_address(made, address.c_str()),
          ::sd_bus_set_bus_client(made, peer == BusPeer::broker ? 1 : 0),
          ::sd_bus_set_method_call_timeout(made, microseconds), ::sd_bus_start(made)}) {
        if (status < 0) {
            return tl::unexpected(status);
        }
    }
    return bus;
}

} // namespace qv
