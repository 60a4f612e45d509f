#pragma once

#include "platform/foundation/values/Value.h"
#include "script/review/Finding.h"

#include <span>
#include <string_view>
#include <vector>

namespace qv {

struct LintOptions {
    /// Whether tools and users are looked for on this machine. Nothing else of it is looked at.
    bool asksMachine = false;
    /// A program has just recorded the script: the process IDs in it are those of running
    /// processes, and settings that it leaves on are its own.
    bool isRecorded = false;
};

/// One check: the name and severity of its findings, and a summary, a sentence without its full
/// stop.
struct LintRule {
    std::string_view name;
    Finding::Severity severity;
    std::string_view summary;
};

/// The mistakes in a script of exact steps, in the order of the steps. Takes any value. Each holds
/// whichever branches are taken. Time and memory are linear in the script.
[[nodiscard]] std::vector<Finding> lint(const Value& steps, const LintOptions& options = {});

/// All checks.
[[nodiscard]] std::span<const LintRule> lintRules() noexcept;

} // namespace qv
