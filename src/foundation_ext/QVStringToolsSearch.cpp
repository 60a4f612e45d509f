#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/text/TextSearch.h"
#include "platform/foundation/text/UTF16.h"
#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

#include <algorithm>
#include <vector>

namespace qv {

namespace {

using Options = StringCompareOptions;

Range occurrenceIn(std::u16string_view text, std::u16string_view string, Options options,
                   int occurence) {
    constexpr Range kNone{kNotFound, 0};
    if (occurence < 1) {
        return kNone;
    }
    const bool backwards = hasOption(options, Options::backwards);
    TextSearch search(text, string, options);
    std::optional<Range> found = search.find(0, text.size());
    for (int count = 1; found && count < occurence; ++count) {
        if (backwards) {
            found = found->location == 0 ? std::nullopt : search.find(0, found->location - 1);
        } else if (found->length == 0) {
            break; // an empty text follows itself, again and again
        } else {
            found = search.find(found->location + found->length, text.size());
        }
    }
    return found.value_or(kNone);
}

// Every occurrence that a search meets, none overlapping another, in the order of the text.
std::vector<Range> everyOccurrence(std::u16string_view text, std::u16string_view string,
                                   Options options) {
    std::vector<Range> ranges;
    TextSearch search(text, string, options);
    if (hasOption(options, Options::backwards)) {
        for (auto found = search.find(0, text.size()); found;
             found = search.find(0, found->location)) {
            ranges.push_back(*found);
        }
        std::ranges::reverse(ranges);
        return ranges;
    }
    for (auto found = search.find(0, text.size()); found;
         found = search.find(found->location + found->length, text.size())) {
        ranges.push_back(*found);
    }
    return ranges;
}

std::string withEveryMatchReplaced(std::string_view receiver, std::u16string_view text,
                                   std::u16string_view expression, std::u16string_view replacement,
                                   Options options) {
    auto compiled = RegularExpression::compile(text, expression, options);
    const auto replaced = compiled ? compiled->replaceAll(replacement) : std::nullopt;
    return replaced ? utf8FromUTF16(*replaced) : std::string(receiver);
}

} // namespace

Range QVStringTools::rangeOfString(std::string_view receiver, std::string_view string,
                                   Options options, Range /*range*/, int occurence) {
    return occurrenceIn(utf16FromUTF8(receiver), utf16FromUTF8(string), options, occurence);
}

std::optional<std::string> QVStringTools::subStringToOccurenceOf(std::string_view receiver,
                                                                 std::string_view string,
                                                                 Options options, Range range,
                                                                 int occurence) {
    const std::u16string text = utf16FromUTF8(receiver);
    const Range found = occurrenceIn(text, utf16FromUTF8(string), options, occurence);
    if (found.location == kNotFound) {
        return std::nullopt;
    }
    if (range.location > found.location) {
        throw Exception(std::string(exception_name::kRange),
                        fmt::format("A substring cannot begin at {} and end at {}", range.location,
                                    found.location));
    }
    return utf8FromUTF16(
        std::u16string_view(text).substr(range.location, found.location - range.location));
}

bool QVStringTools::containsString(std::string_view receiver, std::string_view string) {
    return rangeOfString(receiver, string, Options::none, {}, 1).location != kNotFound;
}

std::optional<std::string> QVStringTools::reverseDomainParent(std::string_view receiver) {
    return subStringToOccurenceOf(receiver, ".", Options::backwards, {}, 1);
}

std::optional<std::string> QVStringTools::domainParent(std::string_view receiver) {
    return subStringToOccurenceOf(receiver, ".", Options::none, {}, 1);
}

std::string QVStringTools::stringByReplacingString(std::string_view receiver,
                                                   std::optional<std::string_view> target,
                                                   std::optional<std::string_view> withString,
                                                   Options options) {
    if (!target || !withString) {
        return std::string(receiver);
    }
    const std::u16string text = utf16FromUTF8(receiver);
    const std::u16string wanted = utf16FromUTF8(*target);
    const std::u16string replacement = utf16FromUTF8(*withString);
    if (hasOption(options, Options::regularExpression)) {
        return withEveryMatchReplaced(receiver, text, wanted, replacement, options);
    }
    std::u16string result;
    std::uint64_t copied = 0;
    for (const Range& range : everyOccurrence(text, wanted, options)) {
        result.append(text, copied, range.location - copied);
        result += replacement;
        copied = range.location + range.length;
    }
    result.append(text, copied);
    return utf8FromUTF16(result);
}

} // namespace qv
