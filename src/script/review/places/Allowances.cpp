#include "script/review/places/Allowances.h"

#include "platform/foundation/values/Trimmed.h"

#include <algorithm>
#include <tuple>

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

/// Tells the steps that comments are for, in the order of the comments.
class StepsOfComments {
public:
    StepsOfComments(std::string_view text, const std::vector<ScriptPlaces::Extent>& steps)
        : text_(text), steps_(steps) {}

    std::optional<std::size_t> of(std::size_t comment) {
        while (begun_ < steps_.size() && steps_[begun_].begin <= comment) {
            const std::size_t end = steps_[begun_++].end;
            lineEnd_ = end <= lineEnd_ ? lineEnd_ : text_.find_first_of("\r\n", end);
        }
        if (begun_ == 0) {
            return std::nullopt;
        }
        return comment > lineEnd_ && begun_ < steps_.size() ? begun_ : begun_ - 1;
    }

private:
    std::string_view text_;
    const std::vector<ScriptPlaces::Extent>& steps_;
    std::size_t begun_ = 0;   // steps that begin before the comment
    std::size_t lineEnd_ = 0; // of the line on which the last of them ends
};

} // namespace

std::vector<Allowance> allowancesIn(std::string_view text, const ScriptPlaces& places) {
    std::vector<Allowance> found;
    StepsOfComments steps(text, places.steps());
    for (const ScriptPlaces::Extent& comment : places.comments()) {
        auto allowance = allowanceOf(text.substr(comment.begin, comment.end - comment.begin));
        if (allowance) {
            allowance->offset = comment.begin;
            allowance->step = steps.of(comment.begin);
            found.push_back(*allowance);
        }
    }
    std::ranges::sort(found, [](const Allowance& left, const Allowance& right) {
        return std::tie(left.step, left.offset) < std::tie(right.step, right.offset);
    });
    return found;
}

} // namespace qv
