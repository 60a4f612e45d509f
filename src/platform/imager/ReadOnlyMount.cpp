#include "platform/imager/ReadOnlyMount.h"

#include "platform/foundation/files/item/Volume.h"
#include "platform/imager/ImageFailure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/loop.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/mount.h>

namespace qv::imager {

namespace {

// The drivers that may read a stranger's bytes: each driver more is one more to be attacked.
constexpr std::array<std::string_view, 9> kKernelTypes = {
    "hfsplus", "hfs", "iso9660", "udf", "squashfs", "ext4", "ext3", "ext2", "vfat"};

constexpr std::uint64_t kProtection = MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV;

struct LoopDevice {
    Descriptor device;
    std::string path;
};

// Somebody else may take the free device first.
tl::expected<LoopDevice, int> loopDevice(int file, const FileSystemPlace& place) {
    constexpr int kAttempts = 100;
    const Descriptor control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!control) {
        return tl::unexpected(errno);
    }
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int number = ::ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            return tl::unexpected(errno);
        }
        LoopDevice loop{.device = {}, .path = fmt::format("/dev/loop{}", number)};
        loop.device = Descriptor(::open(loop.path.c_str(), O_RDONLY | O_CLOEXEC));
        loop_config configuration{};
        configuration.fd = static_cast<__u32>(file);
        configuration.info.lo_offset = place.offset;
        configuration.info.lo_sizelimit = place.size;
        configuration.info.lo_flags = LO_FLAGS_READ_ONLY | LO_FLAGS_AUTOCLEAR;
        if (loop.device && ::ioctl(loop.device.get(), LOOP_CONFIGURE, &configuration) == 0) {
            return loop;
        }
        if (errno != EBUSY && errno != ENOENT && errno != ENXIO) { // taken, or taken away
            break;
        }
    }
    return tl::unexpected(errno);
}

} // namespace

tl::expected<Descriptor, Error> mountFileSystem(int file, const FileSystemPlace& place) {
    const std::string step = fmt::format("mounting ({})", place.type);
    if (std::ranges::find(kKernelTypes, place.type) == kKernelTypes.end()) {
        return failure(step, "not a file system that the kernel is asked to mount");
    }
    const Descriptor context(::fsopen(place.type.c_str(), FSOPEN_CLOEXEC));
    if (!context) {
        return failure(step, errno);
    }
    const auto loop = loopDevice(file, place);
    if (!loop) {
        return failure(step, fmt::format("no loop device: {}", errnoText(loop.error())));
    }
    const bool isReady =
        ::fsconfig(context.get(), FSCONFIG_SET_STRING, "source", loop->path.c_str(), 0) == 0 &&
        ::fsconfig(context.get(), FSCONFIG_SET_FLAG, "ro", nullptr, 0) == 0 &&
        ::fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) == 0;
    Descriptor mount(
        isReady ? ::fsmount(context.get(), FSMOUNT_CLOEXEC, kProtection | MOUNT_ATTR_RDONLY) : -1);
    if (!mount) {
        return failure(step, errno);
    }
    return mount;
}

// Overlays do not sync the files that they show of a layer that they do not write to. There have to
// be two.
Descriptor openWithoutSync(int folder, const char* name, int empty) {
    const std::string layers = fmt::format("/proc/self/fd/{}:/proc/self/fd/{}", folder, empty);
    const Descriptor context(::fsopen("overlay", FSOPEN_CLOEXEC));
    const bool isReady =
        context &&
        ::fsconfig(context.get(), FSCONFIG_SET_STRING, "lowerdir", layers.c_str(), 0) == 0 &&
        ::fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) == 0;
    const Descriptor overlay(
        isReady ? ::fsmount(context.get(), FSMOUNT_CLOEXEC, kProtection | MOUNT_ATTR_RDONLY) : -1);
    return overlay ? Descriptor(::openat(overlay.get(), name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC))
                   : Descriptor();
}

Descriptor cloneOfMount(int item, Access access) {
    Descriptor mount(::open_tree(item, "", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_EMPTY_PATH));
    mount_attr attributes{};
    attributes.attr_set =
        kProtection | (access == Access::readOnly ? std::uint64_t{MOUNT_ATTR_RDONLY} : 0);
    if (mount &&
        ::mount_setattr(mount.get(), "", AT_EMPTY_PATH, &attributes, sizeof attributes) != 0) {
        mount.reset();
    }
    return mount;
}

Error show(const Descriptor& mount, int folder) {
    return ::move_mount(mount.get(), "", folder, "",
                        MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH) == 0
               ? Error()
               : failed("showing the image", errno);
}

int unmountAll(const ItemPlace& place) {
    while (isMountPoint(place.parent.get(), place.name.c_str())) {
        const Descriptor top(::openat(place.parent.get(), place.name.c_str(),
                                      O_PATH | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
        if (!top ||
            ::umount2(fmt::format("/proc/self/fd/{}", top.get()).c_str(), MNT_DETACH) != 0) {
            return errno;
        }
    }
    return 0;
}

} // namespace qv::imager
