#pragma once

#include "platform/system/KernelFiles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv::source {

// Readers of the kernel's files of text: numbers in them, and lines "key : value".

/// Takes the first number, hexadecimal behind "0x", and all before it off a text.
std::optional<std::uint64_t> takeNumber(std::string_view& text, int base = 10);
[[nodiscard]] std::optional<std::uint64_t> firstNumber(const std::optional<std::string>& text,
                                                       int base = 10);
/// The first number in a file.
[[nodiscard]] std::optional<std::uint64_t> numberIn(const KernelFiles& files,
                                                    std::string_view path);

/// Takes the first line off a text, without its end.
std::string_view takeLine(std::string_view& text);
/// The value of a line "key : value".
[[nodiscard]] std::optional<std::string_view> valueOf(std::string_view line, std::string_view key);
/// The value of the first line with that key, which in a list of processors is the first one's.
[[nodiscard]] std::optional<std::string> lineIn(const KernelFiles& files, const char* path,
                                                std::string_view key);

} // namespace qv::source
