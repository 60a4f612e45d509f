#pragma once

#include "platform/foundation/plist/PropertyList.h"

#include <tl/expected.hpp>

#include <optional>
#include <string_view>

namespace qv::plist {

/// The characters that XML counts as white space.
inline constexpr std::string_view kXMLSpace = " \t\r\n";

/// Reads an XML property list. `text`: valid UTF-8.
[[nodiscard]] tl::expected<Value, Error> readXML(std::string_view text,
                                                 const PropertyListLimits& limits);

// The two halves of readXML, apart so that a test can hold one against the other.

/// Reads every list with expat, and refuses every fault.
[[nodiscard]] tl::expected<Value, Error> readAnyXML(std::string_view text,
                                                    const PropertyListLimits& limits);

/// Reads only lists in the markup that programs write: no attributes outside the root, no comments,
/// no CDATA, no references but the five named ones. Nothing for all others, refused ones included:
/// then expat has the word. It is here because expat alone takes longer than half the time of the
/// packaged property-list library (bench/platform/foundation/plist shows both).
[[nodiscard]] std::optional<Value> readPlainXML(std::string_view text,
                                                const PropertyListLimits& limits);

} // namespace qv::plist
