#pragma once

#include <systemd/sd-bus.h>
#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace qv {

struct BusReleaser {
    void operator()(sd_bus* bus) const noexcept { ::sd_bus_close_unref(bus); }
};
struct MessageReleaser {
    void operator()(sd_bus_message* message) const noexcept { ::sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusReleaser>;
using BusMessage = std::unique_ptr<sd_bus_message, MessageReleaser>;

/// The error that a caller is told.
class BusError {
public:
    BusError() = default;
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    BusError(BusError&&) = delete;
    BusError& operator=(BusError&&) = delete;
    ~BusError() { ::sd_bus_error_free(&error_); }
    [[nodiscard]] sd_bus_error* get() noexcept { return &error_; }
    [[nodiscard]] std::string text(int status) const;

private:
    sd_bus_error error_{};
};

enum class BusPeer : std::uint8_t {
    broker, ///< a message bus
    direct, ///< the other side answers itself
};

/// A connection to a D-Bus address, whose calls take at most so long; or the negative errno.
[[nodiscard]] tl::expected<Bus, int> connectToBus(const std::string& address, BusPeer peer,
                                                  std::chrono::microseconds patience);

} // namespace qv
