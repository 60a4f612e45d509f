#include "platform/workspace/launch/BusActivation.h"

#include <fmt/format.h>
#include <systemd/sd-bus.h>
#include <tl/expected.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

namespace qv {

namespace {

constexpr std::chrono::microseconds kPatience = std::chrono::seconds(20);

struct BusReleaser {
    void operator()(sd_bus* bus) const noexcept { ::sd_bus_flush_close_unref(bus); }
};
struct MessageReleaser {
    void operator()(sd_bus_message* message) const noexcept { ::sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusReleaser>;
using Message = std::unique_ptr<sd_bus_message, MessageReleaser>;

class BusError {
public:
    BusError() = default;
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    BusError(BusError&&) = delete;
    BusError& operator=(BusError&&) = delete;
    ~BusError() { ::sd_bus_error_free(&error_); }
    [[nodiscard]] sd_bus_error* get() noexcept { return &error_; }
    [[nodiscard]] std::string text(int status) const {
        return error_.message != nullptr ? error_.message : strerrordesc_np(-status);
    }

private:
    sd_bus_error error_{};
};

// The desktop entry format's rule for the object of a name.
std::string objectPathOf(std::string name) {
    std::ranges::replace(name, '.', '/');
    std::ranges::replace(name, '-', '_');
    return "/" + name;
}

tl::expected<Bus, int> connect(const std::string& address) {
    sd_bus* made = nullptr;
    if (const int status = ::sd_bus_new(&made); status < 0) {
        return tl::unexpected(status);
    }
    Bus bus(made);
    for (const int status :
         {::sd_bus_set_address(made, address.c_str()), ::sd_bus_set_bus_client(made, 1),
          ::sd_bus_set_method_call_timeout(made, kPatience.count()), ::sd_bus_start(made)}) {
        if (status < 0) {
            return tl::unexpected(status);
        }
    }
    return bus;
}

} // namespace

std::string activateOnBus(const std::string& address, const std::string& busName) {
    const tl::expected<Bus, int> bus = connect(address);
    if (!bus) {
        return fmt::format("the session bus cannot be reached: {}", strerrordesc_np(-bus.error()));
    }
    BusError error;
    sd_bus_message* answer = nullptr;
    const int status = ::sd_bus_call_method(
        bus->get(), busName.c_str(), objectPathOf(busName).c_str(), "org.freedesktop.Application",
        "Activate", error.get(), &answer, "a{sv}", 0);
    const Message owner(answer);
    return status >= 0
               ? std::string()
               : fmt::format("the session bus does not start {}: {}", busName, error.text(status));
}

} // namespace qv
