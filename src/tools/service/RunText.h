#pragma once

#include "platform/foundation/values/Value.h"
#include "tools/service/RunHistory.h"
#include "tools/terminal/Terminal.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qv::tools {

inline constexpr std::uint64_t kMicrosecondsOfSecond = 1'000'000;

/// The text "2026-11-22 14:30:05", on the local clock; `microseconds` since 1970.
[[nodiscard]] std::string localTime(std::uint64_t microseconds);
/// The microseconds since 1970.
[[nodiscard]] std::uint64_t microsecondsNow();
/// The text "0.013 s".
[[nodiscard]] std::string secondsText(std::uint64_t microseconds);
/// The text "alice (1000)"; the number alone for a user without a name.
[[nodiscard]] std::string userText(std::uint64_t user);
/// The outcome in words; "not ended" for a run without an outcome.
[[nodiscard]] std::string outcomeText(const RunEntry& run);
/// The text "20 steps: 12 changed, 7 unchanged, 1 failed".
[[nodiscard]] std::string countsText(const RunEntry& run);
/// A step with its values and its error, on lines of their own.
void showStep(const StepEntry& step);
/// Prints "error: TEXT (DOMAIN CODE)", below a step or a run; nothing without a domain.
void showFault(const std::string& domain, const std::string& code, const std::string& error);
/// The style in which an outcome of a run or a step is shown.
[[nodiscard]] Terminal::Style styleOfOutcome(std::string_view outcome);

/// The run for --json.
[[nodiscard]] Value runAsValue(const RunEntry& run, bool withSteps);
/// The same of one step: a record of `run --json`.
[[nodiscard]] Value stepRecord(const StepEntry& step);

} // namespace qv::tools
