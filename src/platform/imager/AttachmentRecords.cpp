#include "platform/imager/AttachmentRecords.h"

#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/os/ProcessText.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/os/ReplacementFile.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Value.h"
#include "platform/imager/ImageFailure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::imager {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kRecords = "the records of what is attached";
constexpr std::string_view kRecord = ".record";
constexpr std::string_view kNewRecord = ".new";
constexpr std::string_view kLock = ".lock";
constexpr mode_t kRecordsMode = 0700;

std::string fileOf(const std::string& name, std::string_view kind) {
    return name + std::string(kind);
}

std::optional<std::uint64_t> startOf(pid_t pid) {
    const auto process = ProcessIdentity::ofPID(pid);
    const auto folder =
        process && !(*process)->hasEnded() ? (*process)->openFolder() : tl::unexpected(ESRCH);
    const Descriptor file(folder ? ::openat(folder->get(), "stat", O_RDONLY | O_CLOEXEC) : -1);
    std::array<char, 4096> text{};
    const ssize_t count = file ? ::read(file.get(), text.data(), text.size()) : -1;
    const auto start =
        parseStartTime({text.data(), count < 0 ? 0 : static_cast<std::size_t>(count)});
    return start ? std::optional(*start) : std::nullopt;
}

// Other users may enter all but the last folder; these exist on a usual machine.
tl::expected<Descriptor, Error> enterFolder(const fs::path& path) {
    constexpr mode_t kForAll = 0755;
    Descriptor folder(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const fs::path below = path.relative_path();
    for (auto part = below.begin(); part != below.end() && folder; ++part) {
        const bool isLast = std::next(part) == below.end();
        folder = openOrMakeFolderIn(folder.get(), part->c_str(), isLast ? kRecordsMode : kForAll);
    }
    struct stat info{};
    if (!folder || ::fstat(folder.get(), &info) != 0) {
        return failure(kRecords, fmt::format("{}: {}", path.native(), errnoText(errno)));
    }
    if (info.st_uid != ::geteuid() || (info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return failure(kRecords, fmt::format("{} is not this user's alone", path.native()));
    }
    return folder;
}

std::optional<Attachment> attachmentOf(const Value& record) {
    const auto text = [&](std::string_view key) {
        const Value* value = record.find(key);
        return value != nullptr && value->is(Value::Kind::string) ? std::string(value->asString())
                                                                  : std::string();
    };
    const auto number = [&](std::string_view key) {
        const Value* value = record.find(key);
        return value != nullptr && value->is(Value::Kind::integer) ? value->asInteger() : 0;
    };
    Attachment attachment{.mountPoint = text("mountPoint"),
                          .workFolder = text("workFolder"),
                          .isCopy = number("copy") != 0,
                          .owner = {.pid = static_cast<pid_t>(number("owner")),
                                    .start = static_cast<std::uint64_t>(number("ownerStart"))}};
    return attachment.mountPoint.empty() || attachment.workFolder.empty()
               ? std::nullopt
               : std::optional(std::move(attachment));
}

} // namespace

Owner Owner::parentOfThisProcess() {
    const pid_t parent = ::getppid();
    const auto start = startOf(parent);
    return start ? Owner{.pid = parent, .start = *start} : Owner{};
}

bool Owner::hasEnded() const { return pid != 0 && startOf(pid) != start; }

tl::expected<AttachmentRecords, Error> AttachmentRecords::open() {
    const uid_t user = ::geteuid();
    auto folder =
        enterFolder(user == 0 ? fs::path(configuration::kImagesFolder)
                              : fs::path(fmt::format("/run/user/{}/qvcatalog-images", user)));
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    return AttachmentRecords(std::move(*folder));
}

tl::expected<Lock, int> AttachmentRecords::lock(const std::string& name,
                                                const Deadline& deadline) const {
    return Lock::take(folder_.get(), fileOf(name, kLock).c_str(), deadline);
}

tl::expected<std::optional<Attachment>, Error>
AttachmentRecords::read(const std::string& name) const {
    constexpr std::size_t kLargest = std::size_t{64} << 10U;
    const Descriptor file(
        ::openat(folder_.get(), fileOf(name, kRecord).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT ? tl::expected<std::optional<Attachment>, Error>()
                               : failure(kRecords, errno);
    }
    const auto content = contentOfRegularFile(file.get(), kLargest);
    if (!content) {
        return failure(kRecords, errno);
    }
    const auto list = PropertyList::propertyListWithData(*content);
    if (!list) {
        return failure(kRecords, list.error().localizedDescription());
    }
    auto attachment = attachmentOf(list->root);
    return attachment ? tl::expected<std::optional<Attachment>, Error>(std::move(attachment))
                      : failure(kRecords, fmt::format("{} is not one", name));
}

Error AttachmentRecords::write(const std::string& name, const Attachment& attachment) const {
    const auto content = PropertyList::dataWithPropertyList(
        Value::dictionary(
            {{"mountPoint", Value::string(attachment.mountPoint)},
             {"workFolder", Value::string(attachment.workFolder)},
             {"copy", Value::integer(attachment.isCopy ? 1 : 0)},
             {"owner", Value::integer(attachment.owner.pid)},
             {"ownerStart", Value::integer(static_cast<std::int64_t>(attachment.owner.start))}}),
        PropertyListFormat::binary);
    if (!content) {
        return failed(kRecords, content.error().localizedDescription());
    }
    // A writer that was killed may have left it; the lock is ours.
    ::unlinkat(folder_.get(), fileOf(name, kNewRecord).c_str(), 0);
    auto file = ReplacementFile::create(
        Descriptor(::fcntl(folder_.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
        fileOf(name, kRecord), fileOf(name, kNewRecord));
    int status = file ? file->append(*content) : file.error();
    if (status == 0) {
        status = file->replace();
    }
    return status == 0 ? Error() : failed(kRecords, status);
}

Error AttachmentRecords::remove(const std::string& name) const {
    for (const std::string_view kind : {kNewRecord, kRecord, kLock}) {
        if (::unlinkat(folder_.get(), fileOf(name, kind).c_str(), 0) != 0 && errno != ENOENT) {
            return failed(kRecords, errno);
        }
    }
    return {};
}

std::vector<std::string> AttachmentRecords::names() const {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(fmt::format("/proc/self/fd/{}", folder_.get()), error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const fs::path file = entry->path().filename();
        names.push_back(file.stem());
    }
    std::ranges::sort(names);
    names.erase(std::ranges::unique(names).begin(), names.end());
    return names;
}

} // namespace qv::imager
