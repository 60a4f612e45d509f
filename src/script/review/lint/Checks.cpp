#include "script/review/lint/Checks.h"

#include "platform/foundation/text/SimilarNames.h"
#include "platform/foundation/values/Conversions.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace qv {

namespace {

constexpr auto kError = Finding::Severity::error;
constexpr auto kWarning = Finding::Severity::warning;

// A row stands at the place that its check numbers.
constexpr std::array kLintRules = std::to_array<LintRule>({
    {"not-a-script", kError, "The script is not an array of steps"},
    {"empty-script", kWarning, "The script has no steps"},
    {"not-a-step", kError, "A step is not a dictionary"},
    {"missing-operation", kError, "A step without an operation waits for a process"},
    {"unknown-operation", kError, "An operation has a code that no operation has"},
    {"misspelt-key", kError, "A key is nearly that of a value, which is therefore missing"},
    {"unknown-key", kWarning, "No operation has this key, so its value is ignored"},
    {"unused-key", kWarning, "The operation has no such value and ignores it"},
    {"missing-value", kError, "An operation fails or does nothing without a value"},
    {"missing-number", kError, "A missing ID is root's, and a missing mode is 0"},
    {"wrong-type", kError, "A value is of another type than the operation takes"},
    {"not-a-number", kError, "A value that is not a number is read as one"},
    {"number-range", kError, "A number is cut to the bits that the operation takes"},
    {"unclear-flag", kError, "A text that is not a flag is read as NO"},
    {"decimal-mode", kError, "A mode in octal digits is read as a decimal number"},
    {"symbolic-mode", kError, "A mode in letters is read as 0"},
    {"mode-range", kWarning, "A mode has bits that are not permissions"},
    {"recursive-without-search", kWarning, "A recursive mode locks users out of folders"},
    {"owner-name", kError, "The name of a user or group is read as 0, which is root"},
    {"admin-flag-bits", kWarning, "Only the low 8 bits of this flag count, and none is set"},
    {"invalid-process", kWarning, "No process has this ID"},
    {"literal-process", kWarning, "A process ID is another process on another machine"},
    {"plain-path", kError, "A path stands where a URL is wanted"},
    {"bad-url", kError, "A text is not a URL of a file"},
    {"other-scheme", kError, "A URL is not a file's"},
    {"url-host", kError, "The first folder of a path is read as the name of a host"},
    {"url-fragment", kError, "A path ends at a character that has a meaning in URLs"},
    {"system-folder", kError, "An operation removes or changes all of a folder of the system"},
    {"onto-itself", kError, "An item is copied or moved onto or into itself"},
    {"used-after-gone", kError, "A step uses an item that an earlier one has taken away"},
    {"destination-exists", kError, "An earlier step has made the destination of this one"},
    {"overwritten-change", kWarning, "A change makes an earlier one useless"},
    {"set-id-lost", kWarning, "A change of owner takes the set-user-ID bit away"},
    {"relative-tool", kError, "A tool is not named by an absolute path"},
    {"tool-with-arguments", kError, "The path of a tool holds its arguments"},
    {"missing-tool", kWarning, "This machine does not have a tool, or may not execute it"},
    {"argument-not-text", kError, "An argument of a tool is not a text"},
    {"shell-syntax", kWarning, "An argument is for a shell, and none runs the tool"},
    {"success-codes", kWarning, "Only status 0 is success, whatever codes are listed"},
    {"applescript-syntax", kError, "An AppleScript does not compile"},
    {"open-block", kError, "A block has no end"},
    {"stray-else", kError, "An else stands outside of a block"},
    {"stray-end-if", kError, "The end of a block stands outside of a block"},
    {"second-else", kError, "A block has a second else"},
    {"empty-block", kWarning, "A block holds no steps"},
    {"rule-syntax", kError, "A rule cannot be parsed, so it is false"},
    {"unknown-function", kError, "A rule calls a function that there is not"},
    {"unknown-name", kError, "A rule names a value that there is not, so it is false"},
    {"unknown-question", kError, "A function does not understand the question of a rule"},
    {"unknown-argument", kError, "A function does not know an argument"},
    {"lone-argument", kError, "A single argument with a value does not reach its function"},
    {"call-in-quotes", kError, "A call in quotes is text"},
    {"version-order", kWarning, "Versions are ordered as texts, not by their numbers"},
    {"constant-rule", kWarning, "A rule asks for nothing, so one branch never runs"},
    {"dead-error-question", kError, "A rule asks for an error that cannot be there"},
    {"errors-passed-over", kWarning, "Failures are passed over up to the end of the script"},
    {"odd-error-behaviour", kWarning, "An error behaviour other than 0, 1, 256 or 257"},
    {"unknown-designation", kError, "A designation of the preferences is read as a name"},
    {"unknown-user", kWarning, "This machine does not have a user"},
    {"owner-not-saved", kError, "No step has saved the owner that is applied"},
    {"saved-owner-dropped", kWarning, "A new storage drops an owner that was saved in the old one"},
    {"silent-progress", kWarning, "The service does not report progress"},
    {"idle-flag", kWarning, "A flag has no effect on this operation"},
    {"idle-admin-rights", kWarning, "Admin rights have no effect in the service"},
});
static_assert(kLintRules.size() == static_cast<std::size_t>(review::Check::idleAdminRights) + 1);

} // namespace

std::span<const LintRule> lintRules() noexcept { return kLintRules; }

namespace review {

void Findings::add(Check check, const Place& place, Explanation explanation) {
    const LintRule& rule = kLintRules[static_cast<std::size_t>(check)];
    findings_.push_back({.rule = rule.name,
                         .severity = rule.severity,
                         .step = place.step,
                         .key = std::string(place.key),
                         .element = place.element,
                         .offset = place.offset,
                         .reason = std::move(explanation.reason),
                         .mend = std::move(explanation.mend)});
}

std::vector<Finding> Findings::inOrder() && {
    sortByPlace(findings_);
    return std::move(findings_);
}

const Field* ReviewedStep::field(std::string_view name) const noexcept {
    const auto found = std::ranges::find(operation->fields, name, &Field::name);
    return found == operation->fields.end() ? nullptr : &*found;
}

bool ReviewedStep::isSet(std::string_view name) const {
    const Field* flag = field(name);
    const Value* given = flag == nullptr ? nullptr : value(*flag);
    return given != nullptr && (given->isNumber() || given->is(Value::Kind::string)) &&
           boolValue(given);
}

std::string inQuotes(std::string_view text) {
    constexpr std::size_t kLongest = 80;
    if (text.size() <= kLongest) {
        return fmt::format("\"{}\"", text);
    }
    std::size_t end = kLongest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end; // a character of several bytes stays whole
    }
    return fmt::format("\"{}...\"", text.substr(0, end));
}

std::string stepName(std::size_t index) { return fmt::format("step {}", index + 1); }

std::string suggestion(std::string_view word, const std::vector<std::string>& known) {
    constexpr std::size_t kLongest = 100; // the time of a comparison grows with the word
    const std::vector<std::string> names =
        word.size() > kLongest ? std::vector<std::string>() : similarNames(word, known);
    return names.empty() ? "" : fmt::format("; did you mean \"{}\"?", fmt::join(names, "\" or \""));
}

std::optional<std::int64_t> wholeNumber(const Value& value) noexcept {
    if (value.is(Value::Kind::string)) {
        std::string_view text = value.asString();
        if (text.starts_with('+') && !text.starts_with("+-")) {
            text.remove_prefix(1);
        }
        std::int64_t number = 0;
        const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
        return fault == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                        : std::nullopt;
    }
    const bool isWhole =
        value.is(Value::Kind::integer) ||
        (value.is(Value::Kind::real) && value == Value::integer(integerValue(&value)));
    return isWhole ? std::optional(integerValue(&value)) : std::nullopt;
}

} // namespace review

} // namespace qv
