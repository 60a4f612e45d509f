#pragma once

#include "platform/iokit/RegistryReplacement.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

/// A folder like the kernel's with a handful of devices; goes away with the program.
class SmallTree {
public:
    SmallTree() {
        if (::mkdtemp(folder_.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        add("pci0000:00", "");
        add("pci0000:00/0000:00:14.0", "pci");
        add("pci0000:00/0000:00:14.0/usb1", "usb", "DEVTYPE=usb_device\n");
        add("pci0000:00/0000:00:14.0/usb1/0003:1.1", "hid", "HID_ID=0003:00001050:00000120\n");
        add("virtual/block/sda", "block", "DEVTYPE=disk\n");
        add("virtual/block/sda/sda1", "block", "DEVTYPE=partition\n");
        add("virtual/net/eth0", "net");
        for (const char* attribute : {"vendor", "device", "idVendor", "size", "type", "busnum"}) {
            for (const auto& device : std::filesystem::recursive_directory_iterator(folder_)) {
                if (std::filesystem::exists(device.path() / "uevent")) {
                    std::ofstream(device.path() / attribute) << "1\n";
                }
            }
        }
    }
    SmallTree(const SmallTree&) = delete;
    SmallTree(SmallTree&&) = delete;
    SmallTree& operator=(const SmallTree&) = delete;
    SmallTree& operator=(SmallTree&&) = delete;
    ~SmallTree() { std::filesystem::remove_all(folder_); }

    [[nodiscard]] qv::DevicePlaces places() const {
        return {.sysfs = folder_, .udevData = folder_, .machineID = "", .openMonitor = {}};
    }

private:
    void add(const std::string& path, const std::string& subsystem, const char* uevent = "") const {
        const auto device = std::filesystem::path(folder_) / "devices" / path;
        std::filesystem::create_directories(device);
        std::ofstream(device / "uevent") << uevent;
        if (!subsystem.empty()) {
            std::filesystem::create_symlink("../bus/" + subsystem, device / "subsystem");
        }
    }
    std::string folder_ = "/tmp/qv-devices-XXXXXX";
};
