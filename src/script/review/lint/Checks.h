#pragma once

#include "script/review/lint/Lint.h"
#include "script/step/OperationTable.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>

namespace qv::review {

/// The checks, in the order of their table.
enum class Check : std::uint8_t {
    notAScript,
    emptyScript,
    notAStep,
    missingOperation,
    unknownOperation,
    misspeltKey,
    unknownKey,
    unusedKey,
    missingValue,
    missingNumber,
    wrongType,
    notANumber,
    numberRange,
    unclearFlag,
    decimalMode,
    symbolicMode,
    modeRange,
    recursiveWithoutSearch,
    ownerName,
    adminFlagBits,
    invalidProcess,
    literalProcess,
    plainPath,
    badURL,
    otherScheme,
    urlHost,
    urlFragment,
    systemFolder,
    ontoItself,
    usedAfterGone,
    destinationExists,
    overwrittenChange,
    setIDLost,
    relativeTool,
    toolWithArguments,
    missingTool,
    argumentNotText,
    shellSyntax,
    successCodes,
    appleScriptSyntax,
    openBlock,
    strayElse,
    strayEndIf,
    secondElse,
    emptyBlock,
    ruleSyntax,
    unknownFunction,
    unknownName,
    unknownQuestion,
    unknownArgument,
    loneArgument,
    callInQuotes,
    versionOrder,
    constantRule,
    deadErrorQuestion,
    errorsPassedOver,
    oddErrorBehaviour,
    unknownDesignation,
    unknownUser,
    ownerNotSaved,
    savedOwnerDropped,
    silentProgress,
    idleFlag,
    idleAdminRights,
};

/// The fault that a check found, and the way to put it right.
struct Explanation {
    std::string reason;
    std::string mend;
};

/// The place of a mistake. No step: the script as a whole.
struct Place {
    std::optional<std::size_t> step;
    std::string_view key = {}; ///< of the record
    std::optional<std::size_t> element = std::nullopt;
    std::optional<std::size_t> offset = std::nullopt;
};

/// Collects what the checks find.
class Findings {
public:
    void add(Check check, const Place& place, Explanation explanation);
    [[nodiscard]] std::vector<Finding> inOrder() &&;

private:
    std::vector<Finding> findings_;
};

static_assert(static_cast<int>(StepKey::URL) == 2, "the keys of items come first");

/// A step that is looked at: a dictionary.
struct ReviewedStep {
    std::size_t index;
    const Value* record;
    const Operation* operation; ///< null when the code is not known
    const LintOptions* options;
    /// The paths of its fields of items, by their keys, as pathOfItem returns them.
    std::array<std::optional<std::string>, 3> paths = {};

    [[nodiscard]] const std::optional<std::string>& path(const Field& itemField) const noexcept {
        return paths[static_cast<std::size_t>(itemField.key)];
    }
    [[nodiscard]] const Value* value(const Field& field) const {
        return record->find(stepKeyName(field.key));
    }
    [[nodiscard]] Place at(const Field& field) const { return {index, stepKeyName(field.key)}; }
    /// The row's field of a name; null when it has none.
    [[nodiscard]] const Field* field(std::string_view name) const noexcept;
    /// Whether its flag of a name is set.
    [[nodiscard]] bool isSet(std::string_view name) const;
    [[nodiscard]] bool is(OperationCode code) const noexcept {
        return operation != nullptr && operation->code == code;
    }
};

/// A foreign text in a message: shortened, in double quotes.
[[nodiscard]] std::string inQuotes(std::string_view text);
/// The name of a step, "step 3", as people count.
[[nodiscard]] std::string stepName(std::size_t index);
/// "; did you mean A or B?" for the nearest of the known names; empty when none is near.
[[nodiscard]] std::string suggestion(std::string_view word, const std::vector<std::string>& known);

/// The whole number that a value says: a number without a fraction, or a text of nothing but digits
/// with a sign. None for any other.
[[nodiscard]] std::optional<std::int64_t> wholeNumber(const Value& value) noexcept;

// The checks of one step by itself, each in a source of its name.
void reviewShape(const ReviewedStep& step, Findings& findings);
void reviewNumber(const ReviewedStep& step, const Field& field, const Value& value,
                  Findings& findings);
void reviewModes(const ReviewedStep& step, Findings& findings);
void reviewPlace(const ReviewedStep& step, const Field& field, const Value& value,
                 Findings& findings);
void reviewTool(const ReviewedStep& step, Findings& findings);
void reviewValues(const ReviewedStep& step, Findings& findings);
void reviewAppleScript(const ReviewedStep& step, const Field& field, std::string_view source,
                       Findings& findings);

/// The path of a file URL as the lexical form of an absolute path, without "//", "." and a slash at
/// its end; none for any other text and for a path with "..".
[[nodiscard]] std::optional<std::string> pathOfItem(const Value* url);
[[nodiscard]] std::optional<std::string> lexicalPath(std::string_view path);

} // namespace qv::review
