#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace qv {

/// The answer of one process to another that asked it for something. A value that holds a URL or an
/// error cannot be told; an error is told with domain, code and user information.
using WorkResult = tl::expected<Value, Error>;

/// The domain of what goes wrong with another process or on the way to it and back. The code is an
/// errno: EOVERFLOW for a frame that is longer than allowed, EBADMSG for one that is cut off,
/// followed by more bytes or not what it should be. Worker.h has the others.
inline constexpr std::string_view kWorkerErrorDomain = "QVWorkerErrorDomain";

// A frame: the length of its content (32 bits, little-endian), a byte that tells what that is, `v`
// or `e`, and the content: a binary property list of the value, or a keyed archive of the error.

/// `longest` is the number of bytes that the content may take, less than 4 GiB.
[[nodiscard]] tl::expected<std::string, Error> frameOf(const WorkResult& result,
                                                       std::size_t longest);
/// The same, but a result that cannot be told becomes the error that says why.
[[nodiscard]] std::string replyFrameOf(const WorkResult& result, std::size_t longest);

/// Puts a frame together from the pieces that arrive.
class ValueFrameReader {
public:
    explicit ValueFrameReader(std::size_t longest) : longest_(longest) {}

    /// Returns true once the frame is complete; the error says why it never can be.
    [[nodiscard]] tl::expected<bool, Error> take(std::string_view bytes);
    /// The result that the frame holds. Of a frame that is not complete: the error that it was cut
    /// off.
    [[nodiscard]] WorkResult result() const;

private:
    std::size_t longest_;
    std::string bytes_;
};

} // namespace qv
