#include "script/review/WrittenField.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace qv {

namespace {

using Kind = Value::Kind;
using Built = tl::expected<Value, WrittenFault>;
using Shown = std::optional<Value>;

constexpr std::uint32_t kUnchangedOwner = 0xFFFFFFFF;
constexpr std::string_view kUnchanged = "unchanged";

tl::unexpected<WrittenFault> writtenFault(std::string_view rule, std::string reason,
                                          std::string mend) {
    return tl::unexpected(WrittenFault{rule, std::move(reason), std::move(mend)});
}

tl::unexpected<WrittenFault> wrongClass(const Value& written, std::string_view wanted) {
    return writtenFault("wrong-class", fmt::format("the value is {}", kindText(written.kind())),
                        fmt::format("write {}", wanted));
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
    return status == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                     : std::nullopt;
}

// Old-style text has no numbers but texts that spell one.
std::optional<std::int64_t> numberIn(const Value& written) {
    if (written.is(Kind::integer)) {
        return written.asInteger();
    }
    return written.is(Kind::string) ? wholeNumber(written.asString()) : std::nullopt;
}

std::string lowered(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

Value patternSchema(std::string_view pattern, std::string_view description) {
    return Value::dictionary({{"type", Value::string("string")},
                              {"pattern", Value::string(pattern)},
                              {"description", Value::string(description)}});
}

Value choiceSchema(std::vector<Value> choices, std::string_view description) {
    return Value::dictionary(
        {{"anyOf", Value::array(std::move(choices))}, {"description", Value::string(description)}});
}

Value typeSchema(std::string_view type) {
    return Value::dictionary({{"type", Value::string(type)}});
}

Value rangeSchema(std::int64_t lowest, std::int64_t highest) {
    return Value::dictionary({{"type", Value::string("integer")},
                              {"minimum", Value::integer(lowest)},
                              {"maximum", Value::integer(highest)}});
}

// Paths and file URLs.

Built buildItem(const Value& written, WritingContext& /*context*/) {
    constexpr std::string_view kMend = "write the absolute path, such as \"/opt/app\"";
    if (!written.is(Kind::string)) {
        return wrongClass(written, "an absolute path, such as \"/opt/app\"");
    }
    const std::string_view text = written.asString();
    if (text.starts_with('/')) {
        if (text.find('\0') != std::string_view::npos) {
            return writtenFault("bad-path", "the path holds a NUL character", std::string(kMend));
        }
        return Value::string(URL::fileURLOfAbsolutePath(text).absoluteString());
    }
    if (!lowered(text.substr(0, 5)).starts_with("file:")) {
        const bool isOther = text.find("://") != std::string_view::npos;
        return writtenFault(
            isOther ? "bad-url" : "relative-path",
            fmt::format("“{}” is {}", text, isOther ? "not a file URL" : "not an absolute path"),
            std::string(kMend));
    }
    const std::optional<URL> url = URL::URLWithString(text);
    if (!url || !url->encodedPath().starts_with('/')) {
        return writtenFault("bad-url",
                            fmt::format("“{}” is not a file URL with an absolute path", text),
                            std::string(kMend));
    }
    return written;
}

Shown showItem(const Value& exact, WritingContext& /*context*/) {
    constexpr std::string_view kScheme = "file://";
    if (!exact.is(Kind::string) || !exact.asString().starts_with("file:///")) {
        return std::nullopt;
    }
    const std::string path = percentDecoded(exact.asString().substr(kScheme.size()));
    return isUTF8(path) ? Shown(Value::string(path)) : std::nullopt;
}

Value itemSchema() {
    return patternSchema("^(/|[Ff][Ii][Ll][Ee]:/)", "an absolute path, or a file URL");
}

Built buildToolPath(const Value& written, WritingContext& /*context*/) {
    if (!written.is(Kind::string)) {
        return wrongClass(written, "the absolute path of the tool, such as \"/usr/bin/tar\"");
    }
    if (!written.asString().starts_with('/')) {
        return writtenFault("relative-path",
                            fmt::format("“{}” is not an absolute path", written.asString()),
                            "write the absolute path of the tool, such as \"/usr/bin/tar\"");
    }
    return written;
}

Value toolPathSchema() { return patternSchema("^/", "the absolute path of the tool"); }

// Texts.

Built buildText(const Value& written, WritingContext& /*context*/) {
    return written.is(Kind::string) ? Built(written) : wrongClass(written, "a text in quotes");
}

Shown showAsItStands(const Value& exact, WritingContext& /*context*/) { return exact; }

Value textSchema() { return typeSchema("string"); }

// The element of an array that is not a text; none if all are.
std::optional<std::size_t> firstOther(const Value& array) {
    const auto elements = array.asArray();
    const auto other =
        std::ranges::find_if(elements, [](const Value& each) { return !each.is(Kind::string); });
    return other == elements.end()
               ? std::nullopt
               : std::optional(static_cast<std::size_t>(other - elements.begin()));
}

tl::unexpected<WrittenFault> wrongElement(const Value& array, std::size_t index,
                                          std::string_view mend) {
    return tl::unexpected(WrittenFault{
        "wrong-class", fmt::format("an element is {}", kindText(array.asArray()[index].kind())),
        std::string(mend), index});
}

Built buildLines(const Value& written, WritingContext& /*context*/) {
    if (written.is(Kind::string)) {
        return written;
    }
    if (!written.is(Kind::array)) {
        return wrongClass(written, "a text in quotes, or an array of its lines");
    }
    if (const auto other = firstOther(written)) {
        return wrongElement(written, *other, "write each line as a text in quotes");
    }
    std::string text;
    for (const Value& line : written.asArray()) {
        text.append(&line == written.asArray().data() ? "" : "\n");
        text.append(line.asString());
    }
    return Value::string(text);
}

Shown showLines(const Value& exact, WritingContext& /*context*/) {
    if (!exact.is(Kind::string) || exact.asString().find('\n') == std::string_view::npos) {
        return exact;
    }
    std::vector<Value> lines;
    std::string_view rest = exact.asString();
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        lines.push_back(Value::string(rest.substr(0, end)));
        rest.remove_prefix(end + 1);
    }
    lines.push_back(Value::string(rest));
    return Value::array(std::move(lines));
}

Value textsSchema(std::string_view description) {
    return Value::dictionary({{"type", Value::string("array")},
                              {"items", textSchema()},
                              {"description", Value::string(description)}});
}

Value linesSchema() {
    return choiceSchema({textSchema(), textsSchema("the lines of the text")},
                        "a text, or an array of its lines");
}

Built buildArguments(const Value& written, WritingContext& /*context*/) {
    if (written.isNull()) {
        return written;
    }
    if (!written.is(Kind::array)) {
        return wrongClass(written, "an array of texts, one for each argument");
    }
    if (const auto other = firstOther(written)) {
        return wrongElement(written, *other, "write each argument as a text in quotes");
    }
    return written;
}

Value argumentsSchema() {
    return choiceSchema({textsSchema("a text for each argument"), typeSchema("null")},
                        "the arguments of the tool; null or nothing for none");
}

// Numbers.

template <std::int64_t lowest, std::int64_t highest>
Built buildNumber(const Value& written, WritingContext& /*context*/) {
    const std::optional<std::int64_t> number = numberIn(written);
    if (!number) {
        return wrongClass(written, "a whole number");
    }
    if (*number < lowest || *number > highest) {
        return writtenFault("number-out-of-range",
                            fmt::format("the number {} is out of range", *number),
                            fmt::format("write a number from {} to {}", lowest, highest));
    }
    return Value::integer(*number);
}

template <std::int64_t lowest, std::int64_t highest> Value numberSchema() {
    return rangeSchema(lowest, highest);
}

constexpr std::int64_t kLowest32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kHighest32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kHighestUnsigned32 = std::numeric_limits<std::uint32_t>::max();

constexpr std::uint32_t kMostMode = 07777;

// 755 is meant in octal; 493, which has a digit that octal lacks, is that number; 420 is likely the
// number for 0644, but nobody can tell.
std::string mendOfNumericMode(std::int64_t number) {
    const std::string digits = std::to_string(number);
    std::uint32_t octal = 0;
    const auto [end, status] =
        std::from_chars(digits.data(), digits.data() + digits.size(), octal, 8);
    const bool isOctal = status == std::errc() && end == digits.data() + digits.size();
    const bool isDecimal = number >= 0 && number <= 0777;
    if (isOctal && octal <= kMostMode) {
        return isDecimal && number > 7
                   ? fmt::format("write \"{:04o}\", or \"{:04o}\" if the number is decimal", octal,
                                 number)
                   : fmt::format("write \"{:04o}\"", octal);
    }
    return fmt::format("write \"{:04o}\"", isDecimal ? number : 0755);
}

Built buildMode(const Value& written, WritingContext& /*context*/) {
    if (written.is(Kind::integer)) {
        return writtenFault(
            "mode-not-octal",
            fmt::format("the mode is the number {}, which does not say whether it is octal",
                        written.asInteger()),
            mendOfNumericMode(written.asInteger()));
    }
    if (!written.is(Kind::string)) {
        return wrongClass(written, "the mode in octal digits between quotes, such as \"0755\"");
    }
    const std::string_view text = written.asString();
    std::uint32_t mode = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
    if (status != std::errc() || end != text.data() + text.size() || text.size() < 3 ||
        text.size() > 5 || mode > kMostMode) {
        return writtenFault("mode-not-octal",
                            fmt::format("“{}” is not a mode of three or four octal digits", text),
                            "write the whole mode, such as \"0755\"");
    }
    return Value::integer(mode);
}

Shown showMode(const Value& exact, WritingContext& /*context*/) {
    if (!exact.is(Kind::integer) || exact.asInteger() < 0 || exact.asInteger() > 07777) {
        return std::nullopt;
    }
    return Value::string(fmt::format("{:04o}", exact.asInteger()));
}

Value modeSchema() {
    return patternSchema("^0?[0-7]{3,4}$", "the mode in octal digits, such as \"0755\"");
}

// Owners.

template <auto look>
Built buildOwner(const Value& written, WritingContext& context, std::string_view rule,
                 std::string_view what) {
    if (const std::optional<std::int64_t> number = numberIn(written)) {
        if (*number < -1 || *number > kHighestUnsigned32) {
            return writtenFault("number-out-of-range",
                                fmt::format("{} is not the number of a {}", *number, what),
                                "write a number from 0 to 4294967295, or a name");
        }
        return Value::integer(*number);
    }
    if (!written.is(Kind::string)) {
        return wrongClass(written, fmt::format("the {}'s name or number", what));
    }
    const std::string name(written.asString());
    if (name == kUnchanged) {
        return Value::integer(kUnchangedOwner);
    }
    if (const std::optional<std::uint32_t> found = (context.accounts.*look)(name)) {
        return Value::integer(*found);
    }
    return writtenFault(
        rule, fmt::format("this machine has no {} “{}”", what, name),
        fmt::format("write the name of a {0} of this machine, the number that the {0} has "
                    "where the script runs, or \"unchanged\"",
                    what));
}

Built buildUser(const Value& written, WritingContext& context) {
    return buildOwner<&Accounts::user>(written, context, "unknown-user", "user");
}

Built buildGroup(const Value& written, WritingContext& context) {
    return buildOwner<&Accounts::group>(written, context, "unknown-group", "group");
}

template <auto look> Shown showOwner(const Value& exact, WritingContext& context) {
    if (!exact.is(Kind::integer) || exact.asInteger() < 0 ||
        exact.asInteger() > kHighestUnsigned32) {
        return exact.is(Kind::integer) ? Shown(exact) : std::nullopt;
    }
    const auto number = static_cast<std::uint32_t>(exact.asInteger());
    if (number == kUnchangedOwner) {
        return Value::string(kUnchanged);
    }
    const auto name = context.ownersByName ? (context.accounts.*look)(number) : std::nullopt;
    return name ? Value::string(*name) : exact;
}

Value ownerSchema() {
    return choiceSchema({rangeSchema(-1, kHighestUnsigned32), textSchema()},
                        "a name or a number; \"unchanged\" leaves it as it is");
}

// Flags and behaviours.

Built buildFlag(const Value& written, WritingContext& /*context*/) {
    if (written.is(Kind::boolean)) {
        return written;
    }
    if (written.is(Kind::string)) {
        const std::string word = lowered(written.asString());
        if (word == "yes" || word == "true" || word == "no" || word == "false") {
            return Value::boolean(word == "yes" || word == "true");
        }
        return writtenFault("wrong-class", fmt::format("“{}” is not yes or no", written.asString()),
                            "write true or false");
    }
    return wrongClass(written, "true or false");
}

Value flagSchema() {
    return choiceSchema({typeSchema("boolean"),
                         patternSchema("^([Yy][Ee][Ss]|[Nn][Oo]|[Tt][Rr][Uu][Ee]|[Ff][Aa][Ll][Ss]"
                                       "[Ee])$",
                                       "the same as a text")},
                        "true or false");
}

Built buildBehaviour(const Value& written, WritingContext& context) {
    if (written.is(Kind::string) && !numberIn(written)) {
        const std::string_view word = written.asString();
        if (word == "stop" || word == "continue") {
            return Value::integer(word == "stop" ? 0 : 1);
        }
        return writtenFault("wrong-class", fmt::format("“{}” is not a behaviour", word),
                            "write \"stop\", \"continue\" or a number");
    }
    return buildNumber<kLowest32, kHighest32>(written, context);
}

Shown showBehaviour(const Value& exact, WritingContext& /*context*/) {
    if (exact.is(Kind::integer) && (exact.asInteger() == 0 || exact.asInteger() == 1)) {
        return Value::string(exact.asInteger() == 0 ? "stop" : "continue");
    }
    return exact;
}

Value behaviourSchema() {
    return choiceSchema({patternSchema("^(stop|continue)$", "at the first step that fails"),
                         rangeSchema(kLowest32, kHighest32)},
                        "\"stop\" or \"continue\", or the behaviour's number");
}

// Conversions of any value.

Built buildAny(const Value& written, WritingContext& /*context*/) { return written; }

Value anySchema() { return Value::dictionary({}); }

Built buildDictionary(const Value& written, WritingContext& /*context*/) {
    return written.is(Kind::dictionary) ? Built(written) : wrongClass(written, "an object {...}");
}

Value dictionarySchema() { return typeSchema("object"); }

constexpr auto buildInt32 = buildNumber<kLowest32, kHighest32>;
constexpr auto int32Schema = numberSchema<kLowest32, kHighest32>;
constexpr auto buildUnsigned32 = buildNumber<0, kHighestUnsigned32>;
constexpr auto unsigned32Schema = numberSchema<0, kHighestUnsigned32>;
constexpr auto showUser = showOwner<&Accounts::userName>;
constexpr auto showGroup = showOwner<&Accounts::groupName>;

constexpr std::array kWrittenKinds = std::to_array<WrittenKind>({
    {FieldKind::item, false, "absolute path", buildItem, showItem, itemSchema},
    {FieldKind::toolPath, false, "absolute path", buildToolPath, showAsItStands, toolPathSchema},
    {FieldKind::arguments, true, "array of texts", buildArguments, showAsItStands, argumentsSchema},
    {FieldKind::exitCodes, true, "any value", buildAny, showAsItStands, anySchema},
    {FieldKind::mode, false, "octal text, \"0755\"", buildMode, showMode, modeSchema},
    {FieldKind::userID, false, "name, number or \"unchanged\"", buildUser, showUser, ownerSchema},
    {FieldKind::groupID, false, "name, number or \"unchanged\"", buildGroup, showGroup,
     ownerSchema},
    {FieldKind::flag, true, "true or false", buildFlag, showAsItStands, flagSchema},
    {FieldKind::adminFlag, false, "true or false", buildFlag, showAsItStands, flagSchema},
    {FieldKind::processID, false, "number", buildInt32, showAsItStands, int32Schema},
    {FieldKind::errorBehaviour, false, "\"stop\", \"continue\" or number", buildBehaviour,
     showBehaviour, behaviourSchema},
    {FieldKind::progressField, false, "number", buildUnsigned32, showAsItStands, unsigned32Schema},
    {FieldKind::rule, false, "text or array of lines", buildLines, showLines, linesSchema},
    {FieldKind::application, false, "text", buildText, showAsItStands, textSchema},
    {FieldKind::preferenceKey, false, "text", buildText, showAsItStands, textSchema},
    {FieldKind::user, false, "text", buildText, showAsItStands, textSchema},
    {FieldKind::host, false, "text", buildText, showAsItStands, textSchema},
    {FieldKind::appleScript, false, "text or array of lines", buildLines, showLines, linesSchema},
    {FieldKind::identifier, false, "any value", buildAny, showAsItStands, anySchema},
    {FieldKind::value, true, "any value", buildAny, showAsItStands, anySchema},
    {FieldKind::storage, false, "object", buildDictionary, showAsItStands, dictionarySchema},
});

constexpr bool writtenKindsAreIndexes() {
    for (std::size_t i = 0; i < kWrittenKinds.size(); ++i) {
        if (static_cast<std::size_t>(kWrittenKinds[i].kind) != i) {
            return false;
        }
    }
    return true;
}
static_assert(writtenKindsAreIndexes(), "a kind stands at the place that its number says");
static_assert(kWrittenKinds.size() == kFieldKindCount);

} // namespace

const WrittenKind& writtenKind(FieldKind kind) noexcept {
    return kWrittenKinds[static_cast<std::size_t>(kind)];
}

bool isSameExactly(const Value& left, const Value& right) {
    if (left.sameAs(right)) {
        return true;
    }
    if (left.kind() != right.kind()) {
        return false;
    }
    switch (left.kind()) {
    case Kind::boolean:
    case Kind::integer:
    case Kind::string:
        return left == right;
    case Kind::array:
        return std::ranges::equal(
            left.asArray(), right.asArray(), [](const auto& a, const auto& b) {
                return a.is(Kind::string) && b.is(Kind::string) && a.asString() == b.asString();
            });
    default:
        return false;
    }
}

} // namespace qv
