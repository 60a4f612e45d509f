#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/journal/JournalReader.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace qv::tools {

/// A step as the journal tells of it.
struct StepEntry {
    std::size_t index = 0;
    std::string outcome; ///< the name of a StepOutcome
    std::string operation;
    std::string text;
    std::vector<std::string> items;
    /// Values that may be secret: length and digest, or as they are.
    std::vector<std::string> values;
    std::uint64_t microseconds = 0;
    std::string errorDomain; ///< empty: it did not fail
    std::string errorCode;
    std::string error; ///< in words; empty where those may hold secrets
    std::string ruleFault;
};

/// A run as the journal tells of it.
struct RunEntry {
    std::string run;
    std::uint64_t begin = 0; ///< microseconds since 1970
    std::string client;
    std::string identifier;
    std::string team;
    std::string codeHash;
    std::uint64_t user = 0;
    std::uint64_t process = 0;
    std::uint64_t service = 0; ///< process ID of the service that ran it
    std::size_t stepCount = 0;
    std::string outcome; ///< "succeeded" or "failed"; empty: it has not ended, or was cut off
    std::uint64_t microseconds = 0;
    std::optional<std::size_t> failedStep;
    std::string errorDomain;
    std::string errorCode;
    std::string error;
    std::size_t lostSteps = 0;
    std::vector<StepEntry> steps; ///< in the order in which they ended
};

/// Whether this machine has a journal, in which runs are recorded.
[[nodiscard]] bool hasJournal();

/// Puts runs together from the journal's records of the service. Others may write records with the
/// same fields, so only those of root's processes in the service's unit count.
class RunHistory {
public:
    enum class Steps : std::uint8_t { with, without };

    /// `folder` holds journal files; empty for this machine's.
    [[nodiscard]] static tl::expected<RunHistory, Error> open(const std::string& folder,
                                                              Steps steps);

    /// All runs from a moment on, in microseconds since 1970, the oldest first.
    [[nodiscard]] tl::expected<std::vector<RunEntry>, Error> runsSince(std::uint64_t microseconds);

    /// The next record will be the first from a moment on, in microseconds since 1970.
    [[nodiscard]] Error followFrom(std::uint64_t microseconds) {
        return reader_.seek(microseconds);
    }
    /// The next record, put into its run, which is new if the record begins it; null if none comes
    /// within `time`. Stays valid.
    [[nodiscard]] tl::expected<RunEntry*, Error> next(std::chrono::microseconds time);

private:
    explicit RunHistory(JournalReader reader) : reader_(std::move(reader)) {}
    RunEntry& take(const JournalEntry& entry);

    JournalReader reader_;
    std::deque<RunEntry> runs_;
};

} // namespace qv::tools
