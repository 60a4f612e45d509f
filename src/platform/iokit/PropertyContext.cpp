#include "platform/iokit/PropertyContext.h"

#include "platform/foundation/os/Folder.h"
#include "platform/iokit/device/ManagerData.h"

namespace qv {

namespace {

// Folders of the firmware, which are not those of devices; numbers that no folder has. A job that a
// driver holds may go on while the process ends: nothing here has a destructor.
constexpr std::uint64_t kFirmware = UINT64_MAX;
constexpr std::uint64_t kDeviceTree = UINT64_MAX - 1;
constexpr std::string_view kFirmwarePath = "/devices/virtual/dmi/id";
constexpr std::string_view kDeviceTreePath = "/firmware/devicetree/base";

} // namespace

const DeviceFolder* PropertyContext::folderOf(std::uint64_t id, std::string_view path) {
    auto found = folders_.find(id);
    if (found == folders_.end()) {
        found = folders_.emplace(id, std::nullopt).first;
        const std::uint64_t inode = id >= kDeviceTree ? 0 : id;
        if (auto folder = DeviceFolder::open(subject_.sysfs->get(), path, inode);
            !path.empty() && folder) {
            found->second = std::move(*folder);
        }
    }
    const auto& folder = found->second;
    return folder ? &*folder : nullptr;
}

std::optional<std::string> PropertyContext::textIn(std::uint64_t id, std::string_view path,
                                                   std::string_view name) {
    std::pair<std::uint64_t, std::string> key(id, name);
    auto found = texts_.find(key);
    if (found == texts_.end()) {
        const DeviceFolder* folder = folderOf(id, path);
        found = texts_
                    .emplace(std::move(key),
                             folder == nullptr ? std::nullopt : session_.read(*folder, name))
                    .first;
    }
    return found->second;
}

const PropertyDevice& PropertyContext::wholeDisk() const {
    return subject_.device.devtype == "partition" && subject_.parent ? *subject_.parent
                                                                     : subject_.device;
}

std::optional<std::string> PropertyContext::text(PropertyOrigin origin, std::string_view source) {
    const auto pairText = [&](const KeyValues& pairs) {
        const auto value = valueOf(pairs, source);
        return value ? std::optional<std::string>(*value) : std::nullopt;
    };
    switch (origin) {
    case PropertyOrigin::attribute:
        return attributeOf(subject_.device, source);
    case PropertyOrigin::parentAttribute:
        return subject_.parent ? attributeOf(*subject_.parent, source) : std::nullopt;
    case PropertyOrigin::diskAttribute:
        return attributeOf(wholeDisk(), source);
    case PropertyOrigin::usbAttribute:
        return subject_.usb ? attributeOf(*subject_.usb, source) : std::nullopt;
    case PropertyOrigin::uevent:
        return pairText(uevent());
    case PropertyOrigin::manager:
        return pairText(managerData());
    case PropertyOrigin::name:
        return subject_.device.name;
    case PropertyOrigin::firmware:
        return textIn(kFirmware, kFirmwarePath, source);
    case PropertyOrigin::deviceTree:
        return textIn(kDeviceTree, kDeviceTreePath, source);
    }
    return std::nullopt;
}

const KeyValues& PropertyContext::uevent() {
    if (!uevent_) {
        uevent_ = parseUevent(attribute("uevent").value_or(""));
    }
    return *uevent_;
}

const KeyValues& PropertyContext::managerData() {
    if (!managerData_) {
        managerData_ =
            managerDataOf(subject_.udevData, subject_.device.subsystem, subject_.device.name,
                          [&](std::string_view name) { return attribute(name); });
    }
    return *managerData_;
}

std::optional<std::string> PropertyContext::driver() {
    const DeviceFolder* folder = ownFolder();
    return folder == nullptr ? std::nullopt : targetName(folder->get(), "driver");
}

bool PropertyContext::isEmptyFolder(const char* name) {
    const DeviceFolder* folder = ownFolder();
    const Descriptor below = folder == nullptr ? Descriptor() : openFolderIn(folder->get(), name);
    return !below || itemsOf(below.get()).value_or(std::vector<FolderItem>()).empty();
}

std::vector<std::string> PropertyContext::readableNames() {
    const DeviceFolder* folder = ownFolder();
    return folder == nullptr ? std::vector<std::string>() : folder->readableNames();
}

} // namespace qv
