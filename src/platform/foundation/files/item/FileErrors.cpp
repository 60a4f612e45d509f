#include "platform/foundation/files/item/FileErrors.h"

#include "platform/foundation/values/UTF8.h"

#include <cerrno>
#include <utility>
#include <vector>

namespace qv {

std::int64_t cocoaFileCode(FileAccess access, int errorNumber) noexcept {
    const bool reading = access == FileAccess::read;
    switch (errorNumber) {
    case ENOENT:
        return reading ? cocoa_error::kFileReadNoSuchFile : cocoa_error::kFileNoSuchFile;
    case EPERM:
    case EACCES:
        return reading ? cocoa_error::kFileReadNoPermission : cocoa_error::kFileWriteNoPermission;
    case ENAMETOOLONG:
        return reading ? cocoa_error::kFileReadInvalidFileName
                       : cocoa_error::kFileWriteInvalidFileName;
    case EFBIG:
        return reading ? cocoa_error::kFileReadTooLarge : cocoa_error::kFileWriteUnknown;
    case EEXIST:
        return reading ? cocoa_error::kFileReadUnknown : cocoa_error::kFileWriteFileExists;
    case ENOSPC:
    case EDQUOT:
        return reading ? cocoa_error::kFileReadUnknown : cocoa_error::kFileWriteOutOfSpace;
    case EROFS:
        return reading ? cocoa_error::kFileReadUnknown : cocoa_error::kFileWriteVolumeReadOnly;
    default:
        return reading ? cocoa_error::kFileReadUnknown : cocoa_error::kFileWriteUnknown;
    }
}

Value pathText(std::string_view path) {
    std::string text;
    while (!path.empty()) {
        const std::size_t valid = validUTF8Length(path);
        text += path.substr(0, valid);
        path.remove_prefix(valid);
        if (!path.empty()) {
            appendUTF8(text, U'\uFFFD');
            path.remove_prefix(1);
        }
    }
    return Value::string(text);
}

Error fileError(const FileFailure& failure, std::string_view operation) {
    std::vector<std::pair<Value, Value>> info;
    const auto add = [&](std::string_view key, Value value) {
        info.emplace_back(Value::string(key), std::move(value));
    };
    add(error_key::kFilePath, pathText(failure.path));
    if (!failure.destination.empty()) {
        add(error_key::kSourceFilePath, pathText(failure.path));
        add(error_key::kDestinationFilePath, pathText(failure.destination));
    }
    if (!operation.empty()) {
        add(error_key::kUserStringVariant, Value::array({Value::string(operation)}));
    }
    add(error_key::kUnderlyingError, Value::error(Error::posix(failure.errorNumber)));
    return {error_domain::kCocoa, cocoaFileCode(failure.access, failure.errorNumber),
            Value::dictionary(std::move(info))};
}

} // namespace qv
