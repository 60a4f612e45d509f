#include "platform/system/KernelText.h"

#include "platform/foundation/values/ASCII.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace qv::source {

std::optional<std::uint64_t> takeNumber(std::string_view& text, int base) {
    const auto* begin = std::ranges::find_if(
        text, [&](char c) { return base == 16 ? hexDigitValue(c) >= 0 : isDigit(c); });
    text = std::string_view(begin, text.end());
    if (text.starts_with("0x")) {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint64_t number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return fault == std::errc() ? std::optional(number) : std::nullopt;
}

std::optional<std::uint64_t> firstNumber(const std::optional<std::string>& text, int base) {
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    return takeNumber(rest, base);
}

std::optional<std::uint64_t> numberIn(const KernelFiles& files, std::string_view path) {
    return firstNumber(files.text(std::string(path)));
}

std::string_view takeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

std::optional<std::string_view> valueOf(std::string_view line, std::string_view key) {
    if (!line.starts_with(key)) {
        return std::nullopt;
    }
    line.remove_prefix(key.size());
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with(':')) {
        return std::nullopt;
    }
    return line.substr(std::min(line.find_first_not_of(" \t", 1), line.size()));
}

std::optional<std::string> lineIn(const KernelFiles& files, const char* path,
                                  std::string_view key) {
    const auto content = files.read(path);
    std::string_view rest = content ? std::string_view(*content) : std::string_view();
    while (!rest.empty()) {
        if (const auto value = valueOf(takeLine(rest), key)) {
            return std::string(*value);
        }
    }
    return std::nullopt;
}

} // namespace qv::source
