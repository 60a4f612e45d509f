#include "script/review/places/Allowances.h"

#include "platform/foundation/values/Trimmed.h"

#include <algorithm>

namespace qv {

namespace {

// Takes a word and the space before it from the beginning of a text.
bool takeWord(std::string_view& text, std::string_view word) {
    const std::string_view rest = trimmed(text);
    if (!rest.starts_with(word)) {
        return false;
    }
    text = rest.substr(word.size());
    return true;
}

std::string_view withoutMarks(std::string_view comment) {
    for (const std::string_view mark : {"<!--", "//", "/*"}) {
        if (comment.starts_with(mark)) {
            comment.remove_prefix(mark.size());
            break;
        }
    }
    for (const std::string_view mark : {"-->", "*/"}) {
        if (comment.ends_with(mark)) {
            comment.remove_suffix(mark.size());
            break;
        }
    }
    return comment;
}

std::optional<Allowance> allowanceOf(std::string_view comment) {
    std::string_view rest = withoutMarks(comment);
    if (!takeWord(rest, "lint:") || !takeWord(rest, "allow")) {
        return std::nullopt;
    }
    const std::size_t colon = rest.find(':');
    const bool hasReason = colon != std::string_view::npos;
    return Allowance{.step = std::nullopt,
                     .rule = trimmed(rest.substr(0, colon)),
                     .reason = hasReason ? trimmed(rest.substr(colon + 1)) : std::string_view(),
                     .offset = 0};
}

// The step that a comment is for.
std::optional<std::size_t>
stepOf(std::string_view text, const std::vector<ScriptPlaces::Extent>& steps, std::size_t comment) {
    const auto next = std::ranges::upper_bound(steps, comment, {}, &ScriptPlaces::Extent::begin);
    if (next == steps.begin()) {
        return std::nullopt;
    }
    const auto index = static_cast<std::size_t>(next - steps.begin()) - 1;
    const std::size_t end = steps[index].end;
    const bool isBehind = comment >= end && text.substr(end, comment - end).find_first_of("\r\n") !=
                                                std::string_view::npos;
    return isBehind && index + 1 < steps.size() ? index + 1 : index;
}

} // namespace

std::vector<Allowance> allowancesIn(std::string_view text, const ScriptPlaces& places) {
    std::vector<Allowance> found;
    for (const ScriptPlaces::Extent& comment : places.comments()) {
        auto allowance = allowanceOf(text.substr(comment.begin, comment.end - comment.begin));
        if (allowance) {
            allowance->offset = comment.begin;
            allowance->step = stepOf(text, places.steps(), comment.begin);
            found.push_back(*allowance);
        }
    }
    std::ranges::stable_sort(found, {}, &Allowance::step);
    return found;
}

} // namespace qv
