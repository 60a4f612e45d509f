#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

/// The numbers are the platform's.
enum class PropertyListFormat : std::uint8_t { oldStyle = 1, xml = 100, binary = 200 };

struct PropertyListDocument {
    Value root;
    PropertyListFormat format;
};

/// Limits that a reader of small lists may set beyond the usual ones.
struct PropertyListLimits {
    int depth = 512; ///< containers within one another
    /// Otherwise the first pair (binary) or the last (text) counts.
    bool refuseDuplicateKeys = false;
};

/// Reads the three encodings of property lists and writes two of them. The formats are public:
/// XML property lists, `bplist00`, and the text form with braces that came before both.
///
/// Reading: data that begins with `bplist0` is binary. Anything else is text (UTF-8; UTF-16 and
/// UTF-32 with a byte order mark; an XML declaration may name any encoding that ICU knows), first
/// tried as XML, then as old-style text. Nearly any single word is a legal old-style list, and
/// white space alone is an empty dictionary. Keys of a binary list that are not strings but
/// numbers, dates or other leaves are read as the texts that describe them.
///
/// Time and memory are linear in the input whatever it holds: an object that a binary list refers
/// to twice is the same Value twice, an object within itself is refused, entities cannot be
/// declared and nothing outside the input is ever fetched. Neither reading nor writing recurses.
///
/// Every refusal is in NSCocoaErrorDomain: 3840 for reading, 3852 for a value that an encoding
/// cannot hold. NSDebugDescription says what is wrong and where: "line N, column M" in text
/// (columns count characters), "at byte offset N" in a binary list, the path of keys and indexes
/// for a value to be written. When data is neither kind of text, the error is that of XML, with
/// the old-style one under `kCFPropertyListOldStyleParsingError`.
///
/// Stricter than the platform: lone surrogates, dates that are not a number, binary objects that
/// overlap, and XML that is not well-formed are refused; but comments may hold "--", and strings
/// control characters, as they are or as references.
class PropertyList {
public:
    static constexpr std::size_t kMostText = std::size_t{1} << 30U; ///< bytes

    [[nodiscard]] static tl::expected<PropertyListDocument, Error>
    propertyListWithData(std::string_view data, const PropertyListLimits& limits = {});

    /// XML and binary; old-style text is only read. A value that is written reads back as an equal
    /// one, but for these: XML holds whole seconds of dates; XML writes the null object, which
    /// stands for "no arguments" in a container, as an empty array; a dictionary whose one pair is
    /// `CF$UID` and an integer reads back from XML as the UID that it spells. Refused: URLs and
    /// errors; trees deeper than 512 containers; for XML also a null root, sets, characters that
    /// XML cannot carry, dates outside the years 0 to 9999, and trees whose text would pass
    /// `mostText` bytes or repeat what they share too often (`refusalOfText`): most of them at
    /// once, all before the text is longer by more than one element.
    [[nodiscard]] static tl::expected<std::string, Error>
    dataWithPropertyList(const Value& root, PropertyListFormat format,
                         std::size_t mostText = kMostText);
};

} // namespace qv
