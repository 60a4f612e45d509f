#pragma once

#include "foundation_ext/DigestType.h"
#include "platform/foundation/text/ComparisonResult.h"
#include "platform/foundation/text/StringCompareOptions.h"
#include "platform/foundation/text/StringEncoding.h"
#include "platform/foundation/text/TextRange.h"
#include "platform/foundation/values/Error.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

class CharacterSet;

/// Small services for strings; the first parameter is the string that is worked on. Strings are
/// UTF-8, positions count UTF-16 code units. Nothing is told apart from an empty string as none.
/// All may be called from several threads, and say by giving none that there is no answer.
namespace QVStringTools {

// Versions and names

/// The order of versions "10.6.8", component by component. Components that differ are split at
/// blanks and compared as integers; where even these are equal ("01" and "1", "3a" and "3b"), the
/// receiver is the smaller one, whichever that is: this is not an ordering in the mathematical
/// sense. A single further component "0" counts for nothing, any other one makes the longer version
/// the newer. No version at all is the same as every other. Allocates nothing.
[[nodiscard]] ComparisonResult compareVersionTo(std::optional<std::string_view> receiver,
                                                std::optional<std::string_view> other) noexcept;
/// The same order for components between another separator; an empty one never separates.
[[nodiscard]] ComparisonResult compareVersionTo(std::optional<std::string_view> receiver,
                                                std::optional<std::string_view> other,
                                                std::string_view withSeperator) noexcept;
/// The order in which a file browser sorts names: "File2" before "file10", "é" the same however it
/// is composed.
[[nodiscard]] ComparisonResult compareLikeFinder(std::string_view receiver, std::string_view other);

/// Returns "com.example" for "com.example.tool"; none without a ".".
[[nodiscard]] std::optional<std::string> reverseDomainParent(std::string_view receiver);
/// Returns "com" for "com.example.tool"; none without a ".".
[[nodiscard]] std::optional<std::string> domainParent(std::string_view receiver);

// Searching

/// The `occurence`-th occurrence in the whole string; only its location counts, which is kNotFound
/// when there are fewer, or for a number below 1. `range` has no say. Backwards, each occurrence
/// ends at least one unit before the one behind it begins.
[[nodiscard]] Range rangeOfString(std::string_view receiver, std::string_view string,
                                  StringCompareOptions options, Range range, int occurence);
/// The text from `range.location` up to that occurrence; none when it is not found. Throws an
/// Exception (NSRangeException) when it lies before that location.
[[nodiscard]] std::optional<std::string> subStringToOccurenceOf(std::string_view receiver,
                                                                std::string_view string,
                                                                StringCompareOptions options,
                                                                Range range, int occurence);
[[nodiscard]] bool containsString(std::string_view receiver, std::string_view string);

// Filtering and rewriting

/// The units that are in the set, in their order.
[[nodiscard]] std::string
stringWithAllCharactersStrippedNotInCharacterSet(std::string_view receiver,
                                                 const CharacterSet& set);
/// The letters that have a case (categories Ll and Lu) and the digits 0 to 9.
[[nodiscard]] std::string stripNonChar(std::string_view receiver);
/// A backslash before every double quote.
[[nodiscard]] std::string quoteQuotes(std::string_view receiver);
/// The string with every occurrence replaced; unchanged without a target or a replacement. The
/// replacement of a regular expression may name its groups, "$1".
[[nodiscard]] std::string stringByReplacingString(std::string_view receiver,
                                                  std::optional<std::string_view> target,
                                                  std::optional<std::string_view> withString,
                                                  StringCompareOptions options);
/// The string without blanks, tabs, line feeds and carriage returns, and without other white space
/// at both ends.
[[nodiscard]] std::string stringWithRemovedWhitespace(std::string_view receiver);
/// The string with %-escapes, as UTF-8, for characters that a URL cannot hold: "%" itself, "#" and
/// brackets among it, but none of the other reserved characters. None for a string that is not
/// UTF-8.
[[nodiscard]] std::optional<std::string> stringWithAddedPercentEscapes(std::string_view receiver);
/// The string's UTF-16 code units.
[[nodiscard]] std::u16string uniCharRepresentation(std::string_view receiver);

// Making strings

/// A random UUID in upper case. None when the system has no random numbers.
[[nodiscard]] std::optional<std::string> uuid();
/// One character, read from the unit's two bytes, the high one first. Half of a surrogate pair is
/// U+FFFD; U+FEFF and U+FFFE are read as the mark of a byte order, before an empty string.
[[nodiscard]] std::string stringWithUniCodeChar(char16_t unit);
/// The bytes in lower-case hexadecimal, two digits a byte. None for no data, and for data that
/// points nowhere.
[[nodiscard]] std::optional<std::string>
stringWithHexValuesForData(std::optional<std::string_view> data);

// Digests, as of QVTransforms. None, and no error, when the encoding cannot hold the string.

[[nodiscard]] std::optional<std::string> computeDigestStringOfType(std::string_view receiver,
                                                                   DigestType digestType,
                                                                   StringEncoding usingEncoding,
                                                                   Error* error);
[[nodiscard]] std::optional<std::string> computeDigestDataOfType(std::string_view receiver,
                                                                 DigestType digestType,
                                                                 StringEncoding usingEncoding,
                                                                 Error* error);
[[nodiscard]] std::optional<std::string> md5Digest(std::string_view receiver);
[[nodiscard]] std::optional<std::string> sha1Digest(std::string_view receiver);
[[nodiscard]] std::optional<std::string> md5DigestData(std::string_view receiver);
[[nodiscard]] std::optional<std::string> sha1DigestData(std::string_view receiver);

} // namespace QVStringTools
} // namespace qv
