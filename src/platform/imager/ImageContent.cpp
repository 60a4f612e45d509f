#include "platform/imager/ImageContent.h"

#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/imager/CompressedImage.h"
#include "platform/imager/FileSystemProbe.h"
#include "platform/imager/ImageFailure.h"
#include "platform/imager/ReadOnlyMount.h"
#include "platform/imager/SevenZip.h"
#include "platform/imager/TreeRepair.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qv::imager {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kWorking = "the folder for work";

// 7-Zip's handling of a format that libblkid has named.
struct Format {
    std::string_view type;
    std::string_view name;
    bool hasVolumeFolder; // the volume's content lies in a folder of its name
    Names names;
};
constexpr std::array<Format, 11> kFormats = {{{"hfsplus", "HFS", true, Names::composed},
                                              {"apfs", "APFS", true, Names::kept},
                                              {"iso9660", "Iso", false, Names::kept},
                                              {"udf", "Udf", false, Names::kept},
                                              {"squashfs", "SquashFS", false, Names::kept},
                                              {"ext4", "Ext", false, Names::kept},
                                              {"ext3", "Ext", false, Names::kept},
                                              {"ext2", "Ext", false, Names::kept},
                                              {"vfat", "FAT", false, Names::kept},
                                              {"exfat", "FAT", false, Names::kept},
                                              {"ntfs", "NTFS", false, Names::kept}}};

/// The folder for work of one image, made when it is first needed.
class WorkFolder {
public:
    explicit WorkFolder(const ItemPlace& place) : place_(place) {}

    /// An empty folder in it, open for reading.
    tl::expected<Descriptor, Error> make(const char* name) {
        if (!folder_) {
            folder_ = made(place_.parent.get(), place_.name.c_str());
        }
        Descriptor inner = folder_ ? made(folder_.get(), name) : Descriptor();
        if (!inner) {
            return failure(kWorking, errno);
        }
        return inner;
    }

private:
    // The file is not synced: that would wait until all files unpacked before are on the disk.
    static Descriptor made(int parent, const char* name) {
        constexpr mode_t kOwnersAlone = 0700;
        return ::mkdirat(parent, name, kOwnersAlone) == 0 ? openFolderIn(parent, name)
                                                          : Descriptor();
    }

    const ItemPlace& place_;
    Descriptor folder_;
};

std::vector<std::string> namesIn(int folder) {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(fmt::format("/proc/self/fd/{}", folder), error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        names.push_back(entry->path().filename());
    }
    return names;
}

// The files of a compressed image are its partitions: "0.hfs", "10.apfs".
int numberOf(const std::string& name) {
    int number = 0;
    std::from_chars(name.data(), name.data() + name.size(), number);
    return number;
}

struct Volume {
    Descriptor file;
    FileSystemPlace place;
    Descriptor toMount = {}; ///< the file too, if there is a better way to it
};

tl::expected<Volume, Error> firstVolumeIn(int folder, WorkFolder& work) {
    std::vector<std::string> names = namesIn(folder);
    std::ranges::sort(names, {}, [](const auto& name) { return std::pair(numberOf(name), name); });
    Error last = failed("unpacking", "the image is empty");
    for (const std::string& name : names) {
        Descriptor file(
            ::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        auto place = file ? findFileSystem(file.get()) : failure("unpacking", errno);
        if (place) {
            const auto empty = work.make("empty");
            return Volume{std::move(file), std::move(*place),
                          empty ? openWithoutSync(folder, name.c_str(), empty->get())
                                : Descriptor()};
        }
        last = place.error();
    }
    return tl::unexpected(last);
}

Error unpackPartitions(int image, int folder) {
    const auto isDone = decodeImage(image, folder);
    if (!isDone) {
        return isDone.error();
    }
    return *isDone ? Error() : unpack(image, "Dmg", folder);
}

// 7-Zip reads whole files only.
tl::expected<Descriptor, Error> ownFileOf(const Volume& volume, WorkFolder& work) {
    constexpr mode_t kOwnersAlone = 0600;
    const auto folder = work.make("partition");
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    Descriptor copy(
        ::openat(folder->get(), "0", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kOwnersAlone));
    auto from = static_cast<off_t>(volume.place.offset);
    for (std::uint64_t left = volume.place.size; copy && left > 0;) {
        const ssize_t count =
            ::copy_file_range(volume.file.get(), &from, copy.get(), nullptr, left, 0);
        if (count <= 0) {
            return failure("copying the partition", count == 0 ? ENODATA : errno);
        }
        left -= static_cast<std::uint64_t>(count);
    }
    if (!copy) {
        return failure("copying the partition", errno);
    }
    return copy;
}

tl::expected<Descriptor, Error> unpackVolume(const Volume& volume, const Format& format,
                                             WorkFolder& work) {
    const auto part =
        volume.place.offset == 0 ? tl::expected<Descriptor, Error>() : ownFileOf(volume, work);
    if (!part) {
        return tl::unexpected(part.error());
    }
    auto folder = work.make("content");
    if (!folder) {
        return folder;
    }
    const int file = *part ? part->get() : volume.file.get();
    Error error = unpack(file, std::string(format.name), folder->get());
    if (!error) {
        error = repairTree(folder->get(), pathWhileUnpacking(folder->get()), format.names);
    }
    if (error) {
        return tl::unexpected(error);
    }
    constexpr mode_t kForAll = 0755; // as a volume's own folder; the one above is its owner's still
    if (::fchmod(folder->get(), kForAll) != 0) {
        return failure(kWorking, errno);
    }
    const std::vector<std::string> names = namesIn(folder->get());
    if (!format.hasVolumeFolder || names.size() != 1) {
        return folder;
    }
    Descriptor inner = openFolderIn(folder->get(), names.front().c_str());
    return inner ? tl::expected<Descriptor, Error>(std::move(inner)) : failure(kWorking, errno);
}

} // namespace

tl::expected<ImageContent, Error> openContent(int image, const ItemPlace& workFolder) {
    WorkFolder work(workFolder);
    tl::expected<Volume, Error> volume;
    if (hasImageTrailer(image)) {
        const auto partitions = work.make("partitions");
        if (!partitions) {
            return tl::unexpected(partitions.error());
        }
        if (Error error = unpackPartitions(image, partitions->get())) {
            return tl::unexpected(std::move(error));
        }
        volume = firstVolumeIn(partitions->get(), work);
    } else if (auto place = findFileSystem(image)) {
        volume = Volume{Descriptor(::fcntl(image, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
                        std::move(*place)};
    } else {
        volume = tl::unexpected(place.error());
    }
    if (!volume) {
        return tl::unexpected(volume.error());
    }
    const bool isRoot = ::geteuid() == 0;
    const Descriptor& toMount = volume->toMount ? volume->toMount : volume->file;
    auto mounted = isRoot ? mountFileSystem(toMount.get(), volume->place)
                          : tl::expected<Descriptor, Error>(tl::unexpect, Error());
    if (mounted) {
        return ImageContent{.mount = std::move(*mounted), .folder = {}};
    }
    const auto* const format = std::ranges::find(kFormats, volume->place.type, &Format::type);
    if (format == kFormats.end()) {
        return isRoot ? tl::unexpected(mounted.error())
                      : failure("unpacking",
                                fmt::format("7-Zip does not read {}", volume->place.type));
    }
    const auto content = unpackVolume(*volume, *format, work);
    if (!content) {
        return tl::unexpected(content.error());
    }
    if (!isRoot) {
        return ImageContent{.mount = {}, .folder = pathOfHeldItem(content->get())};
    }
    Descriptor mount = cloneOfMount(content->get(), Access::readOnly);
    return mount ? tl::expected<ImageContent, Error>(ImageContent{std::move(mount), {}})
                 : failure("mounting what was unpacked", errno);
}

} // namespace qv::imager
