#pragma once

#include "platform/foundation/files/UniqueFd.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace qv {

/// A new file beside an existing one that takes its place when it is finished, and goes away when
/// it never is. Functions give 0 or the errno.
class ReplacementFile {
public:
    /// Nobody but the owner can open it until it replaces `path`.
    static tl::expected<ReplacementFile, int> create(const std::string& path);
    ReplacementFile(ReplacementFile&& other) noexcept = default;
    ReplacementFile& operator=(ReplacementFile&&) = delete;
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    ~ReplacementFile();

    /// Appends the first `length` bytes of another file and shows each part on the way.
    int copyFrom(int source, std::uint64_t length,
                 const std::function<void(std::string_view)>& eachPart);
    int append(std::string_view bytes);
    /// Gives it this owner and mode, makes it durable and puts it in the other one's place.
    int replace(const struct stat& like);
    [[nodiscard]] int descriptor() const noexcept { return file_.get(); }

private:
    ReplacementFile(std::string path, std::string temporaryPath, UniqueFd file)
        : path_(std::move(path)), temporaryPath_(std::move(temporaryPath)), file_(std::move(file)) {
    }

    std::string path_;
    std::string temporaryPath_;
    UniqueFd file_; // holds nothing once moved from or done
};

} // namespace qv
