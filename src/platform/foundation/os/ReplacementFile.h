#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/TemporaryName.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace qv {

/// A new file beside an existing one that takes its place when it is finished, and goes away when
/// it never is. Functions give 0 or the errno.
class ReplacementFile {
public:
    /// Nobody but the owner can open it until it replaces `path`.
    static tl::expected<ReplacementFile, int> create(const std::string& path);
    /// The same beside what is to become `name` of a folder, whose path is not used again. Until
    /// then it has a name that nothing else must have.
    static tl::expected<ReplacementFile, int> create(Descriptor folder, std::string name,
                                                     std::string temporary = temporaryName());
    ReplacementFile(ReplacementFile&& other) noexcept = default;
    ReplacementFile& operator=(ReplacementFile&&) = delete;
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    ~ReplacementFile();

    /// Appends the first `length` bytes of another file and shows each part on the way.
    int copyFrom(int source, std::uint64_t length,
                 const std::function<void(std::string_view)>& eachPart = {});
    int append(std::string_view bytes);
    int give(uid_t user, gid_t group, mode_t mode);
    /// Makes it durable and puts it in the other one's place.
    int replace();
    /// The same in another folder of the same file system, where readers would take an unfinished
    /// file for one of theirs.
    int replaceIn(int folder);
    [[nodiscard]] int descriptor() const noexcept { return file_.get(); }

private:
    ReplacementFile(Descriptor folder, std::string name, std::string temporaryName, Descriptor file)
        : folder_(std::move(folder)), name_(std::move(name)),
          temporaryName_(std::move(temporaryName)), file_(std::move(file)) {}

    Descriptor folder_;
    std::string name_;
    std::string temporaryName_;
    Descriptor file_; // holds nothing once moved from or done
};

} // namespace qv
