#pragma once

#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

// What the service and its examiner say to each other over a stream socket, one request and one
// reply a connection: the length of what follows (32 bits, little-endian), then a binary property
// list. With the first byte of the request comes one descriptor: the program, open for reading.
//
//     request   "anchors" (AnchorSet::encoded), "milliseconds" (how long it may take)
//     reply     StaticCode::encoded

inline constexpr std::size_t kLongestRequest = std::size_t{4} << 20U; ///< all anchors there can be
inline constexpr std::size_t kLongestReply = std::size_t{1} << 20U;

/// With its length before it; empty when it would be longer than `longest`.
[[nodiscard]] std::string examinationFrame(const Value& content, std::size_t longest);

/// Puts a frame together from the pieces that arrive.
class ExaminationFrameReader {
public:
    explicit ExaminationFrameReader(std::size_t longest) : longest_(longest) {}

    /// True once the frame is complete; the error says why it never can be.
    [[nodiscard]] tl::expected<bool, std::string> take(std::string_view bytes);
    /// The property list of a complete frame.
    [[nodiscard]] tl::expected<Value, std::string> content() const;

private:
    std::size_t longest_;
    std::string bytes_;
};

} // namespace qv
