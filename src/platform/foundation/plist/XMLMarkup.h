#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qv::plist {

/// XML text as expat takes it. Property lists of the platform are read more leniently than XML is
/// defined: "--" may stand in comments; control characters and the non-characters U+FFFE and U+FFFF
/// may stand anywhere, as they are or as references. Here others stand in their place, byte for
/// byte, so that offsets stay; `appendContent` knows what stood there.
class XMLMarkup {
public:
    /// `text`: valid UTF-8, which must outlive this.
    explicit XMLMarkup(std::string_view text);

    /// Valid as long as the text.
    [[nodiscard]] std::string_view wellFormed() const noexcept {
        return changed_.empty() ? text_ : changed_;
    }
    /// Appends content without well-formed references, as the text has it.
    void appendContent(std::string& out, std::size_t offset, std::size_t size) const;

private:
    struct Reference {
        std::size_t offset;
        std::size_t size;
        char32_t character;
    };

    [[nodiscard]] std::size_t skipMarkup(std::size_t offset);
    [[nodiscard]] std::size_t skipComment(std::size_t offset);
    [[nodiscard]] std::size_t skipReference(std::size_t offset);
    void replace(std::size_t offset, std::size_t size, char with);

    std::string_view text_;
    std::string changed_;               // empty while nothing had to be changed
    std::vector<Reference> references_; // to what XML does not hold
};

} // namespace qv::plist
