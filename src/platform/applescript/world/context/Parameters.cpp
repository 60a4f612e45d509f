#include "platform/applescript/world/context/Parameters.h"

#include "platform/applescript/values/Numbers.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/foundation/text/Folding.h"
#include "platform/foundation/text/UTF16.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace qv::applescript::world {

namespace {

using Kind = ScriptValue::Kind;

struct FileErrorText {
    std::int64_t number;
    std::string_view before;
    std::string_view after;
};

constexpr std::array kFileErrorTexts = std::to_array<FileErrorText>({
    {error_number::kFileNotFound, "File ", " wasn’t found."},
    {error_number::kDuplicateFileName, "File ", " already exists."},
    {error_number::kFolderNotFound, "Folder ", " wasn’t found."},
    {error_number::kAccessDenied, "File ", " may not be accessed: the permission is missing."},
    {error_number::kDiskFull, "Disk of file ", " is full."},
    {error_number::kBadName, "Bad name for file ", "."},
    {error_number::kDiskProtected, "Disk of file ", " is write protected."},
    {error_number::kFileBusy, "File ", " is busy."},
});

struct ErrnoNumber {
    int errorNumber;
    std::int64_t number;
};

constexpr std::array kErrnoNumbers = std::to_array<ErrnoNumber>({
    {ENOENT, error_number::kFileNotFound},
    {ENOTDIR, error_number::kFileNotFound},
    {EEXIST, error_number::kDuplicateFileName},
    {ENOTEMPTY, error_number::kDuplicateFileName},
    {EACCES, error_number::kAccessDenied},
    {EPERM, error_number::kAccessDenied},
    {ELOOP, error_number::kAccessDenied},
    {ENOSPC, error_number::kDiskFull},
    {EDQUOT, error_number::kDiskFull},
    {ENAMETOOLONG, error_number::kBadName},
    {EROFS, error_number::kDiskProtected},
    {EBUSY, error_number::kFileBusy},
});

// The errno of the error itself, or of one beneath it.
int errnoOf(Error error) {
    while (error.domain() != error_domain::kPOSIX) {
        const Value information = error.userInfo();
        const Value* const cause = information.find(error_key::kUnderlyingError);
        if (cause == nullptr || !cause->is(Value::Kind::error)) {
            const bool isMissing = error.domain() == error_domain::kCocoa &&
                                   error.code() == cocoa_error::kFileNoSuchFile;
            return isMissing ? ENOENT : 0;
        }
        error = cause->asError();
    }
    return static_cast<int>(error.code());
}

} // namespace

void fail(std::int64_t number, std::string brief, std::string_view application) {
    throw ScriptError{
        .number = number, .brief = std::move(brief), .application = std::string(application)};
}

void failToGet(std::string_view object, std::string_view application) {
    fail(error_number::kCannotGet, fmt::format("Can’t get {}.", object), application);
}

void failToConvert(const ScriptValue& value, Term type) {
    throw ScriptError{.number = error_number::kCannotConvert,
                      .brief =
                          fmt::format("Can’t make {} into type {}.", shown(value), wordsOf(type)),
                      .application = {},
                      .offender = value,
                      .expected = ScriptValue::type(type)};
}

void failToUnderstand(std::string_view words, std::string_view application) {
    fail(error_number::kNotUnderstood, fmt::format("Can’t continue {}.", words), application);
}

void failWithFile(std::int64_t number, std::string_view path, std::string_view application) {
    const auto text = std::ranges::find(kFileErrorTexts, number, &FileErrorText::number);
    const std::string name = colonPathOf(path);
    fail(number,
         text == kFileErrorTexts.end() ? fmt::format("The operation on file {} failed.", name)
                                       : fmt::format("{}{}{}", text->before, name, text->after),
         application);
}

void failWithFile(const Error& error, std::string_view path, std::string_view application) {
    const std::int64_t number = fileErrorNumber(errnoOf(error));
    if (number != error_number::kEventFailed) {
        failWithFile(number, path, application);
    }
    fail(error.domain() == error_domain::kOSStatus ? error.code() : number,
         error.localizedDescription(), application);
}

std::int64_t fileErrorNumber(int errorNumber) noexcept {
    const auto* const found =
        std::ranges::find(kErrnoNumbers, errorNumber, &ErrnoNumber::errorNumber);
    return found == kErrnoNumbers.end() ? error_number::kEventFailed : found->number;
}

std::string textFrom(const ScriptValue& value) {
    switch (value.kind()) {
    case Kind::text:
        return value.asText();
    case Kind::file:
        return colonPathOf(value.asFilePath());
    default:
        break;
    }
    if (std::optional<std::string> text = scalarText(value)) {
        return *std::move(text);
    }
    if (value.is(Kind::list) && value.asList().size() == 1 &&
        !value.asList().front().is(Kind::list)) {
        return textFrom(value.asList().front());
    }
    failToConvert(value, Term::text);
}

double numberFrom(const ScriptValue& value) {
    if (value.isNumber()) {
        return realOf(value);
    }
    if (value.is(Kind::text)) {
        if (const auto number = numberFromText(value.asText())) {
            return realOf(*number);
        }
    }
    failToConvert(value, Term::number);
}

bool booleanFrom(const ScriptValue& value) {
    if (value.is(Kind::boolean)) {
        return value.asBoolean();
    }
    if (value.isConstant(Term::yes) || value.isConstant(Term::no)) {
        return value.isConstant(Term::yes);
    }
    if (value.is(Kind::integer)) {
        return value.asInteger() != 0;
    }
    failToConvert(value, Term::boolean);
}

std::vector<ScriptValue> listFrom(const ScriptValue& value) {
    return value.is(Kind::list) ? value.asList() : std::vector<ScriptValue>{value};
}

std::string shown(const ScriptValue& value) {
    switch (value.kind()) {
    case Kind::text:
        return fmt::format("\"{}\"", value.asText());
    case Kind::list:
        return fmt::format("a list of {} items", value.asList().size());
    case Kind::record:
        return "a record";
    case Kind::date:
        return "a date";
    case Kind::specifier:
        return fmt::format("application \"{}\"", value.asSpecifier().application);
    case Kind::script:
        return "«script»";
    case Kind::file:
        return fmt::format("{} \"{}\"", wordsOf(value.fileForm()),
                           value.fileForm() == Term::posixFile ? validText(value.asFilePath())
                                                               : colonPathOf(value.asFilePath()));
    default:
        return textFrom(value);
    }
}

const ScriptValue& directOf(const Command& command) {
    if (!command.hasDirect) {
        fail(error_number::kParameterMissing,
             fmt::format("The direct parameter is missing for {}.", wordsOf(command.name)));
    }
    return command.direct;
}

std::optional<std::string> textParameter(const Command& command, Term label) {
    const ScriptValue* const value = command.parameter(label);
    return value == nullptr || value->isMissing() ? std::nullopt : std::optional(textFrom(*value));
}

bool flagParameter(const Command& command, Term label, bool otherwise) {
    const ScriptValue* const value = command.parameter(label);
    return value == nullptr ? otherwise : booleanFrom(*value);
}

std::string validText(std::string bytes) {
    return isUTF8(bytes) ? std::move(bytes) : utf8FromUTF16(utf16FromUTF8(bytes));
}

std::u16string comparable(std::string_view text) {
    return foldedText(utf16FromUTF8(text), StringCompareOptions::caseInsensitive).units;
}

bool isSameText(std::string_view left, std::string_view right) {
    return left == right || comparable(left) == comparable(right);
}

} // namespace qv::applescript::world
