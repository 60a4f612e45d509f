#pragma once

#include <string_view>

/// The fields of the records of runs, as the service writes and the command reads them. The journal
/// adds its own: the moment, and the process and unit of the service.
namespace qv::run_field {

inline constexpr std::string_view kKind = "QVCATALOG_RECORD"; ///< one of the three below
inline constexpr std::string_view kBegin = "run-begin";
inline constexpr std::string_view kStepEnd = "step";
inline constexpr std::string_view kEnd = "run-end";

inline constexpr std::string_view kRun = "QVCATALOG_RUN"; ///< in all: 16 hexadecimal digits

// Fields of a run, at its begin and its end.
inline constexpr std::string_view kClient = "QVCATALOG_CLIENT"; ///< an allowed one, or "built in"
/// The identifier that it is signed with.
inline constexpr std::string_view kIdentifier = "QVCATALOG_IDENTIFIER";
inline constexpr std::string_view kTeam = "QVCATALOG_TEAM";
inline constexpr std::string_view kCodeHash = "QVCATALOG_CDHASH"; ///< hexadecimal
inline constexpr std::string_view kUser = "QVCATALOG_UID";        ///< of the client's process
inline constexpr std::string_view kProcess = "QVCATALOG_PID";
inline constexpr std::string_view kStepCount = "QVCATALOG_STEPS";

// Fields of a run's end and of a step.
inline constexpr std::string_view kOutcome = "QVCATALOG_OUTCOME"; ///< a step's: StepOutcome's names
inline constexpr std::string_view kDuration = "QVCATALOG_DURATION_US";
inline constexpr std::string_view kErrorDomain = "QVCATALOG_ERROR_DOMAIN";
inline constexpr std::string_view kErrorCode = "QVCATALOG_ERROR_CODE";
inline constexpr std::string_view kError = "QVCATALOG_ERROR"; ///< in words, unless it may be secret
/// The step's index; of an end: the index of the step that failed.
inline constexpr std::string_view kStep = "QVCATALOG_STEP";
inline constexpr std::string_view kLost = "QVCATALOG_LOST"; ///< of an end: steps without record

// Fields of a step.
inline constexpr std::string_view kOperation = "QVCATALOG_OPERATION"; ///< as people write it
inline constexpr std::string_view kItem = "QVCATALOG_ITEM";           ///< path; one field for each
inline constexpr std::string_view kText = "QVCATALOG_TEXT"; ///< the step as a person reads it
inline constexpr std::string_view kRuleFault =
    "QVCATALOG_RULE_FAULT"; ///< the reason why its rule has no value
inline constexpr std::string_view kRule = "QVCATALOG_RULE"; ///< the text of that rule
inline constexpr std::string_view kValue =
    "QVCATALOG_VALUE"; ///< a value that may be secret, see StepDetails

} // namespace qv::run_field
