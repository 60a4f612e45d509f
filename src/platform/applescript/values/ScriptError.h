#pragma once

#include "platform/applescript/values/ScriptValue.h"
#include "platform/foundation/text/TextRange.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qv::applescript {

namespace error_number {
inline constexpr std::int64_t kUserCanceled = -128;
inline constexpr std::int64_t kDiskFull = -34;
inline constexpr std::int64_t kBadName = -37;
inline constexpr std::int64_t kFileNotFound = -43;
inline constexpr std::int64_t kDiskProtected = -44;
inline constexpr std::int64_t kFileBusy = -47;
inline constexpr std::int64_t kDuplicateFileName = -48;
inline constexpr std::int64_t kFolderNotFound = -120;
inline constexpr std::int64_t kOutOfMemory = -108;
inline constexpr std::int64_t kAccessDenied = -5000;
inline constexpr std::int64_t kCannotConvert = -1700;
inline constexpr std::int64_t kParameterMissing = -1701;
inline constexpr std::int64_t kNotUnderstood = -1708;
inline constexpr std::int64_t kTimedOut = -1712;
inline constexpr std::int64_t kNoUserInteraction = -1713;
inline constexpr std::int64_t kInvalidIndex = -1719;
inline constexpr std::int64_t kCannotGet = -1728;
inline constexpr std::int64_t kGeneral = -2700;
inline constexpr std::int64_t kDivideByZero = -2701;
inline constexpr std::int64_t kNumberTooLarge = -2702;
inline constexpr std::int64_t kStackOverflow = -2706;
inline constexpr std::int64_t kCannotFollow = -2740;
inline constexpr std::int64_t kSyntax = -2741;
inline constexpr std::int64_t kNameTooLong = -2742;
inline constexpr std::int64_t kParameterTwice = -2750;
inline constexpr std::int64_t kPropertyTwice = -2751;
inline constexpr std::int64_t kHandlerTwice = -2752;
inline constexpr std::int64_t kNotDefined = -2753;
inline constexpr std::int64_t kLocalAndGlobal = -2754;
inline constexpr std::int64_t kExitOutsideRepeat = -2755;
inline constexpr std::int64_t kParameterMismatch = -1721;
inline constexpr std::int64_t kCannotSet = -10006;
inline constexpr std::int64_t kEventFailed = -10000;
inline constexpr std::int64_t kApplicationNotFound = -10814;
} // namespace error_number

/// A failure that a script, its compilation or an application reports. Thrown inside this room, and
/// caught by `try` and at the room's edge; nothing else of the system sees it.
struct ScriptError {
    std::int64_t number = error_number::kGeneral;
    std::string brief;               ///< without the application that says so
    std::string application;         ///< the application that says so, or empty
    std::optional<Range> range = {}; ///< of the source, in UTF-16 units
    ScriptValue offender = {};       ///< the object that `try` gives as `from`
    ScriptValue expected = {};       ///< the class that `try` gives as `to`
    ScriptValue partialResult = {};  ///< missing value: none
    bool endsScript = false;         ///< a bound is reached: `try` does not catch it

    /// `Finder got an error: ` and the brief text.
    [[nodiscard]] std::string message() const;
};

[[noreturn]] void throwError(ScriptError error);

} // namespace qv::applescript
