#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <string>
#include <string_view>

namespace qv::plist {

/// Text in valid UTF-8 without a byte order mark. Owns it only where the input was something else.
class DecodedText {
public:
    explicit DecodedText(std::string_view borrowed) : borrowed_(borrowed) {}
    explicit DecodedText(std::string owned) : owned_(std::move(owned)), isOwned_(true) {}
    [[nodiscard]] std::string_view view() const noexcept { return isOwned_ ? owned_ : borrowed_; }

private:
    std::string_view borrowed_;
    std::string owned_;
    bool isOwned_ = false;
};

/// Decodes text by its byte order mark (UTF-8, UTF-16, UTF-32), else by the encoding that an XML
/// declaration names, else UTF-8.
[[nodiscard]] tl::expected<DecodedText, Error> decodeText(std::string_view data);

/// Appends UTF-16 code units, big-endian when `bigEndian`. Stops before a lone surrogate or an odd
/// byte at the end; gives the number of bytes that were read.
std::size_t appendUTF16(std::string& out, std::string_view units, bool bigEndian);

} // namespace qv::plist
