#include "platform/workspace/launch/TextList.h"

#include <fmt/core.h>

#include <charconv>

namespace qv {

// Each is its length, a colon and its bytes.
std::string encodedTexts(const std::vector<std::string>& texts) {
    std::string encoding;
    for (const std::string& text : texts) {
        encoding += fmt::format("{}:", text.size()) + text;
    }
    return encoding;
}

std::optional<std::vector<std::string>> decodedTexts(std::string_view encoding) {
    std::vector<std::string> texts;
    while (!encoding.empty()) {
        std::size_t length = 0;
        const char* const end = encoding.data() + encoding.size();
        const auto [colon, failure] = std::from_chars(encoding.data(), end, length);
        if (failure != std::errc() || colon == end || *colon != ':' ||
            length > static_cast<std::size_t>(end - colon - 1)) {
            return std::nullopt;
        }
        texts.emplace_back(colon + 1, length);
        encoding = std::string_view(colon + 1 + length, end);
    }
    return texts;
}

} // namespace qv
