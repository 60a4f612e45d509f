#pragma once

#include <string>
#include <string_view>

namespace qv {

/// Texts in their order, with the separator between each two; empty if there are none.
template <typename Texts>
[[nodiscard]] std::string joined(const Texts& texts, std::string_view separator) {
    std::string all;
    bool isFirst = true;
    for (const std::string_view text : texts) {
        if (!isFirst) {
            all += separator;
        }
        isFirst = false;
        all += text;
    }
    return all;
}

} // namespace qv
