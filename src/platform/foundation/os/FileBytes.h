#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qv {

/// Fills `into` from an absolute offset of a file, whatever its own offset is. Gives 0 or the
/// errno; a file that ends before is ENODATA.
[[nodiscard]] int readExactly(int fd, std::uint64_t offset, std::span<char> into) noexcept;

/// Writes all of it, in as many pieces as it takes. Gives 0 or the errno.
[[nodiscard]] int writeAll(int fd, std::string_view bytes) noexcept;

/// The text of an errno.
[[nodiscard]] std::string errnoText(int errorNumber);

} // namespace qv
