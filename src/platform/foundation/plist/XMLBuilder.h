#pragma once

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/plist/RecentKeyLists.h"
#include "platform/foundation/plist/XMLScalars.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv::plist {

enum class XMLTag : std::uint8_t {
    plist,
    dict,
    array,
    string,
    key,
    data,
    date,
    integer,
    real,
    yes,
    no
};

[[nodiscard]] std::optional<XMLTag> tagNamed(std::string_view name) noexcept;
[[nodiscard]] std::string_view nameOf(XMLTag tag) noexcept;
[[nodiscard]] constexpr bool isContainer(XMLTag tag) noexcept { return tag <= XMLTag::array; }

/// An element that holds text.
struct XMLLeaf {
    XMLTag tag;
    bool selfClosing; ///< <tag/>
    std::string_view content;
    std::size_t offset;        ///< of the tag
    std::size_t contentOffset; ///< of what follows the tag
};

/// Makes values of the elements of an XML property list. It knows the meaning of the format, its
/// callers know the markup. Every call answers false once something is refused.
class XMLBuilder {
public:
    /// `text` only serves to tell lines.
    XMLBuilder(std::string_view text, const PropertyListLimits& limits)
        : text_(text), limits_(limits) {}

    [[nodiscard]] bool open(XMLTag container, std::size_t offset);
    /// Closes the innermost container. `offset`: of the closing tag.
    [[nodiscard]] bool close(std::size_t offset);
    [[nodiscard]] bool leaf(const XMLLeaf& leaf);
    /// Keeps the first refusal.
    bool fail(std::size_t offset, std::string_view wording);

    /// Returns true when the outermost element is complete.
    [[nodiscard]] bool finished() const noexcept { return finished_; }
    /// The innermost open container; `finished()` or nothing yet when there is none.
    [[nodiscard]] std::optional<XMLTag> innermost() const noexcept;
    [[nodiscard]] const Error& error() const noexcept { return error_; }
    [[nodiscard]] tl::expected<Value, Error> takeResult();

private:
    struct Frame {
        XMLTag tag;
        bool keyPending; // a dictionary's key waits for its value
        std::size_t offset;
        std::size_t firstValue; // in values_
        std::size_t firstKey;   // in keys_
    };
    [[nodiscard]] bool admits(XMLTag tag, std::size_t offset);
    void add(Value value);
    [[nodiscard]] bool closeDictionary(const Frame& frame, std::size_t offset, Value& result);
    [[nodiscard]] static tl::expected<Value, ContentFault> scalar(const XMLLeaf& leaf);

    std::string_view text_;
    PropertyListLimits limits_;
    std::vector<Frame> frames_;
    std::vector<Value> values_; // of the open containers, innermost last
    std::string keys_;          // signatures of the open dictionaries, innermost last
    TextDictionaries dictionaries_;
    Value root_;
    Error error_;
    bool finished_ = false;
};

} // namespace qv::plist
