#pragma once

#include "platform/foundation/values/Error.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

enum class FileAccess : std::uint8_t { read, write };

/// The failure of a file operation, and the item at which it happened.
struct FileFailure {
    int errorNumber = 0;
    FileAccess access = FileAccess::write;
    std::string path;
    std::string destination; ///< of a copy or move
};

/// The code of NSCocoaErrorDomain for an errno.
[[nodiscard]] std::int64_t cocoaFileCode(FileAccess access, int errorNumber) noexcept;

/// Returns an error of NSCocoaErrorDomain with the path, the destination, the operation (one word
/// as NSUserStringVariant knows them, or empty) and the POSIX error as the underlying one.
[[nodiscard]] Error fileError(const FileFailure& failure, std::string_view operation);

/// A path as text: bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] Value pathText(std::string_view path);

} // namespace qv
