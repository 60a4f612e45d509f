#pragma once

#include "platform/foundation/values/Value.h"
#include "tools/RunHistory.h"

#include <cstdint>
#include <string>

namespace qv::tools {

inline constexpr std::uint64_t kMicrosecondsOfSecond = 1'000'000;

/// "2026-11-22 14:30:05", on the local clock; `microseconds` since 1970.
[[nodiscard]] std::string localTime(std::uint64_t microseconds);
/// "0.013 s".
[[nodiscard]] std::string secondsText(std::uint64_t microseconds);
/// "alice (1000)"; the number alone for a user without a name.
[[nodiscard]] std::string userText(std::uint64_t user);
/// "not ended" for a run without an outcome.
[[nodiscard]] std::string outcomeText(const RunEntry& run);
/// For --json.
[[nodiscard]] Value runAsValue(const RunEntry& run, bool withSteps);

} // namespace qv::tools
