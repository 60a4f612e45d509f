#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace qv {

/// Lines and columns of a text, both from 1; columns count characters. Lines end with LF, CR or CR
/// LF. Made in linear time, asked in almost constant time however long a line is. Looks at the
/// text, which must outlive it.
class LineIndex {
public:
    struct Place {
        std::size_t line;
        std::size_t column;
    };
    explicit LineIndex(std::string_view text);
    [[nodiscard]] Place of(std::size_t offset) const;

private:
    [[nodiscard]] std::size_t charactersBefore(std::size_t offset) const;

    std::string_view text_;
    std::vector<std::size_t> lines_{0};   // the offset at which each begins
    std::vector<std::size_t> characters_; // before each block
};

} // namespace qv
