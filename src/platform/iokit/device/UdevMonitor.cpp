#include "platform/iokit/device/UdevMonitor.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"

#include <cerrno>
#include <fcntl.h>
#include <libudev.h>
#include <linux/nsfs.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

struct UdevDeleter {
    void operator()(udev* library) const noexcept { udev_unref(library); }
    void operator()(udev_monitor* monitor) const noexcept { udev_monitor_unref(monitor); }
    void operator()(udev_device* device) const noexcept { udev_device_unref(device); }
};
template <typename Type> using UdevOwner = std::unique_ptr<Type, UdevDeleter>;

std::string textOrEmpty(const char* text) { return text == nullptr ? "" : text; }

class UdevMonitor final : public DeviceMonitor {
public:
    UdevMonitor(UdevOwner<udev> library, UdevOwner<udev_monitor> monitor) noexcept
        : library_(std::move(library)), monitor_(std::move(monitor)) {}

    [[nodiscard]] int descriptor() const override { return udev_monitor_get_fd(monitor_.get()); }

    [[nodiscard]] Received receive(DeviceEvent& event) override {
        errno = 0;
        const UdevOwner<udev_device> device(udev_monitor_receive_device(monitor_.get()));
        if (device == nullptr) {
            return errno == ENOBUFS ? Received::overrun : Received::nothing;
        }
        event = {};
        event.action = textOrEmpty(udev_device_get_action(device.get()));
        event.path = textOrEmpty(udev_device_get_devpath(device.get()));
        event.oldPath = textOrEmpty(udev_device_get_property_value(device.get(), "DEVPATH_OLD"));
        event.synthetic = udev_device_get_property_value(device.get(), "SYNTH_UUID") != nullptr;
        return Received::event;
    }

private:
    UdevOwner<udev> library_;
    UdevOwner<udev_monitor> monitor_;
};

// The kernel sends no event into a network namespace that belongs to a user namespace of its own.
bool isCutOff() {
    constexpr ino_t kInitialUserNamespace = 0xEFFFFFFD;
    const Descriptor network(::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    const Descriptor owner(network ? ::ioctl(network.get(), NS_GET_USERNS) : -1);
    struct stat info{};
    return owner && ::fstat(owner.get(), &info) == 0 && info.st_ino != kInitialUserNamespace;
}

void logNoEvents(std::string_view cause) {
    log::write(log::Priority::notice, "no event of a device can arrive: " + std::string(cause) +
                                          "; notifications tell of the devices that are there now");
}

} // namespace

std::unique_ptr<DeviceMonitor> openUdevMonitor() {
    constexpr int kReceiveBuffer = 128 << 20; // bytes; taken as they are needed
    if (isCutOff()) {
        logNoEvents("the kernel sends none into this network namespace");
        return nullptr;
    }
    UdevOwner<udev> library(udev_new());
    const bool managed = ::access("/run/udev/control", F_OK) == 0;
    UdevOwner<udev_monitor> monitor(
        library == nullptr
            ? nullptr
            : udev_monitor_new_from_netlink(library.get(), managed ? "udev" : "kernel"));
    if (monitor == nullptr) {
        logNoEvents(errnoText(errno));
        return nullptr;
    }
    // The kernel refuses this without privilege; the usual size then has to do.
    static_cast<void>(udev_monitor_set_receive_buffer_size(monitor.get(), kReceiveBuffer));
    if (const int result = udev_monitor_enable_receiving(monitor.get()); result < 0) {
        logNoEvents(errnoText(-result));
        return nullptr;
    }
    return std::make_unique<UdevMonitor>(std::move(library), std::move(monitor));
}

} // namespace qv
