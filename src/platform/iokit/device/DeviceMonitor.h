#pragma once

#include <cstdint>
#include <string>

namespace qv {

/// An event of one device.
struct DeviceEvent {
    std::string action = {};  ///< add, remove, change, move, bind, unbind, online, offline
    std::string path = {};    ///< of the device, below the folder of the kernel: "/devices/..."
    std::string oldPath = {}; ///< of a move
    bool synthetic = false;   ///< somebody asked the kernel to send it; nothing has happened
};

/// The source of events. For one thread.
class DeviceMonitor {
public:
    enum class Received : std::uint8_t {
        event,
        nothing,
        overrun ///< events were lost; those that are still there say nothing about the lost ones
    };

    DeviceMonitor() = default;
    DeviceMonitor(const DeviceMonitor&) = delete;
    DeviceMonitor(DeviceMonitor&&) = delete;
    DeviceMonitor& operator=(const DeviceMonitor&) = delete;
    DeviceMonitor& operator=(DeviceMonitor&&) = delete;
    virtual ~DeviceMonitor() = default;

    [[nodiscard]] virtual int descriptor() const = 0;               ///< to be watched for input
    [[nodiscard]] virtual Received receive(DeviceEvent& event) = 0; ///< without waiting
};

} // namespace qv
