#pragma once

#include "platform/foundation/log/RecordSink.h"
#include "platform/foundation/values/Value.h"
#include "script/StepObserver.h"
#include "script/record/StepDetails.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace qv {

/// The client on whose behalf a script runs.
struct RunClient {
    std::string name;       ///< of the allowed client, or "built in"
    std::string identifier; ///< the identifier that its program is signed with
    std::string team;
    std::string codeHash; ///< of its code directory, hexadecimal
    std::uint64_t user = 0;
    std::uint64_t process = 0;
};

/// Writes down one run of a script: that it begins, each step, and how it ends. A step's record
/// waits in memory where writing it would hold up the run: half a millisecond and a hundredth of
/// the run's time are spent on writing meanwhile, and the rest is written after the reply. So a
/// script of many short steps costs what it cost before, and the steps of one that takes long can
/// be followed.
class RunRecord final : public StepObserver {
public:
    using Clock = std::chrono::steady_clock;

    /// `sink` must live as long as the record.
    RunRecord(log::RecordSink& sink, RunClient client, SecretValues secrets);

    /// Writes that the run of these steps begins, if there are any.
    void begin(const Value& steps);
    void stepEnded(const Result& result) override;
    /// Notes the outcome; nothing is written yet. `failedStep`: -1 for none.
    void end(bool success, std::int64_t failedStep, const Error& error);

    enum class Written : std::uint8_t { all, some, nothing };
    /// Writes of what is left as much as `time` allows; nothing: there is a rest, and the receiver
    /// takes none of it now.
    Written writeFor(Clock::duration time);
    /// Gives up the steps that are not written, and counts them in the record of the end.
    void abandon();

private:
    struct Step {
        std::uint32_t index;
        StepOutcome outcome;
        const Operation* operation;
        Clock::duration duration;
        Error error;
    };

    [[nodiscard]] log::Record newRecord(std::string_view kind, std::string_view message) const;
    void addClient(log::Record& record) const;
    [[nodiscard]] log::Record recordOf(const Step& step) const;
    [[nodiscard]] log::Record recordOfEnd() const;
    /// Returns false if the receiver is busy.
    bool write(const log::Record& record);

    log::RecordSink& sink_;
    RunClient client_;
    SecretValues secrets_;
    std::string run_;
    Value steps_;
    std::size_t count_ = 0;
    std::vector<Step> pending_;
    std::size_t written_ = 0;                       // of pending_
    std::map<std::size_t, std::string> ruleFaults_; // by the step's index
    std::size_t lost_ = 0;
    bool hasEnded_ = false;
    bool success_ = false;
    std::int64_t failedStep_ = -1;
    Error error_;
    Clock::time_point begin_;
    Clock::time_point stepBegin_;
    Clock::duration duration_{};
    Clock::duration spent_{}; // on writing, while the run goes on
};

} // namespace qv
