#include "platform/applescript/AppleScript.h"
#include "platform/foundation/text/UTF16.h"
#include "script/review/lint/Checks.h"

#include <fmt/format.h>

namespace qv::review {

namespace {

// The place in bytes of a place in UTF-16 units.
std::size_t bytesBefore(std::string_view text, std::size_t units) {
    return utf8FromUTF16(std::u16string_view(utf16FromUTF8(text)).substr(0, units)).size();
}

std::string withoutFullStop(std::string text) {
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

} // namespace

void reviewAppleScript(const ReviewedStep& step, const Field& field, std::string_view source,
                       Findings& findings) {
    const std::optional<AppleScriptError> error =
        AppleScript(std::string(source)).compilationError();
    if (!error) {
        return;
    }
    Place place = step.at(field);
    if (error->range) {
        place.offset = bytesBefore(source, error->range->location);
    }
    findings.add(Check::appleScriptSyntax, place,
                 {fmt::format("the AppleScript does not compile, so the step fails: {} ({})",
                              withoutFullStop(error->message), error->number),
                  "correct it, and try it with `qvcatalog script --check`"});
}

} // namespace qv::review
