#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qv::plist {

/// Containers that a writer has open may hold one another so deep: what is written reads back.
inline constexpr std::size_t kDeepestWritten = 512;

/// A container on a writer's way down.
struct WriteFrame {
    Value container;        // holds on to it, as views into it are at work
    std::size_t next = 0;   // child to write
    std::size_t height = 1; // containers on the longest way down so far, itself included
    std::size_t mark = 0;   // for the writer's own use
};

/// The path of the child that each frame has taken last: `[3].arg1`; "the root" without frames.
[[nodiscard]] std::string keyPath(std::span<const WriteFrame> frames);

/// Returns an error "WORDING at PATH" with code 3852.
[[nodiscard]] Error writeRefusal(std::span<const WriteFrame> frames, std::string_view wording);

/// The value that the innermost frame takes next: element, or value of a pair.
[[nodiscard]] const Value& nextChild(const WriteFrame& frame);
[[nodiscard]] std::size_t childCount(const Value& container);
[[nodiscard]] bool isContainer(const Value& value);

} // namespace qv::plist
