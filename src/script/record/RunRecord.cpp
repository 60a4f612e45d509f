#include "script/record/RunRecord.h"

#include "script/record/RunFields.h"
#include "script/step/StepText.h"

#include <fmt/format.h>

#include <algorithm>
#include <sys/random.h>
#include <utility>

namespace qv {

namespace {

constexpr std::size_t kMostReserved = std::size_t{1} << 16U;
constexpr std::int64_t kShareOfWriting = 100; // one part in so many of the run's time
// The head start has the first steps stand in the record before a long one begins.
constexpr std::chrono::microseconds kHeadStart(500);

// The ID is only a name; two equal ones are unlikely enough.
std::string newRunID() {
    std::uint64_t bits = 0;
    if (::getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) {
        bits = static_cast<std::uint64_t>(RunRecord::Clock::now().time_since_epoch().count());
    }
    return fmt::format("{:016x}", bits);
}

std::uint64_t microseconds(RunRecord::Clock::duration duration) {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(duration).count());
}

} // namespace

RunRecord::RunRecord(log::RecordSink& sink, RunClient client, SecretValues secrets)
    : sink_(sink), client_(std::move(client)), secrets_(secrets), run_(newRunID()) {}

log::Record RunRecord::newRecord(std::string_view kind, std::string_view message) const {
    log::Record record(log::Priority::notice, fmt::format("run {}: {}", run_, message));
    record.add(run_field::kKind, kind);
    record.add(run_field::kRun, run_);
    record.add(run_field::kUser, client_.user);
    record.add(run_field::kProcess, client_.process);
    return record;
}

void RunRecord::addClient(log::Record& record) const {
    record.add(run_field::kClient, client_.name);
    record.add(run_field::kIdentifier, client_.identifier);
    record.add(run_field::kTeam, client_.team);
    record.add(run_field::kCodeHash, client_.codeHash);
    record.add(run_field::kStepCount, std::uint64_t{count_});
}

bool RunRecord::write(const log::Record& record) {
    return sink_.send(record) != log::RecordSink::Sent::later;
}

void RunRecord::begin(const Value& steps) {
    steps_ = steps;
    count_ = steps.is(Value::Kind::array) ? steps.asArray().size() : 0;
    pending_.reserve(std::min(count_, kMostReserved));
    // Otherwise the run has ended before anybody reads its beginning; the end says all.
    if (count_ > 0) {
        log::Record record = newRecord(
            run_field::kBegin, fmt::format("{} step{} of client {} ({}), user {}, process {}",
                                           count_, count_ == 1 ? "" : "s", client_.name,
                                           client_.identifier, client_.user, client_.process));
        addClient(record);
        static_cast<void>(write(record));
    }
    begin_ = Clock::now();
    stepBegin_ = begin_;
}

void RunRecord::stepEnded(const Result& result) {
    pending_.push_back({.index = static_cast<std::uint32_t>(result.index),
                        .outcome = result.outcome,
                        .operation = result.operation,
                        .duration = result.end - stepBegin_,
                        .error = result.error});
    if (!result.ruleFault.empty()) {
        ruleFaults_.emplace(result.index, result.ruleFault);
    }
    stepBegin_ = result.end;
    const Clock::duration allowed = kHeadStart + (result.end - begin_) / kShareOfWriting - spent_;
    if (allowed > Clock::duration::zero()) {
        static_cast<void>(writeFor(allowed));
        stepBegin_ = Clock::now();
        spent_ += stepBegin_ - result.end;
    }
}

void RunRecord::end(bool success, std::int64_t failedStep, const Error& error) {
    hasEnded_ = true;
    success_ = success;
    failedStep_ = failedStep;
    error_ = error;
    duration_ = Clock::now() - begin_;
}

log::Record RunRecord::recordOf(const Step& step) const {
    const Value& value = steps_.asArray()[step.index];
    log::Record record =
        newRecord(run_field::kStepEnd, stepMessage(value, step.index, count_, step.outcome) +
                                           faultText(step.error, step.operation, secrets_));
    record.add(run_field::kStep, std::uint64_t{step.index});
    record.add(run_field::kOutcome, outcomeName(step.outcome));
    record.add(run_field::kDuration, microseconds(step.duration));
    addStep(record, value, step.operation, secrets_);
    addError(record, step.error, step.operation, secrets_);
    if (const auto fault = ruleFaults_.find(step.index); fault != ruleFaults_.end()) {
        record.add(run_field::kRuleFault, fault->second);
        const Value* rule = value.find(stepKeyName(StepKey::arg1));
        record.add(run_field::kRule,
                   rule != nullptr && rule->is(Value::Kind::string) ? rule->asString() : "");
    }
    return record;
}

log::Record RunRecord::recordOfEnd() const {
    const bool hasStep = failedStep_ >= 0 && std::cmp_less(failedStep_, count_);
    const Operation* operation =
        hasStep ? operationOfStep(steps_.asArray()[static_cast<std::size_t>(failedStep_)])
                : nullptr;
    const std::string how =
        failedStep_ < 0 ? "failed" : fmt::format("failed at step {}", failedStep_ + 1);
    log::Record record =
        newRecord(run_field::kEnd,
                  fmt::format("{} of {} step{} of client {}, user {}{}",
                              success_ ? "ran to the end" : how, count_, count_ == 1 ? "" : "s",
                              client_.name, client_.user, faultText(error_, operation, secrets_)));
    addClient(record);
    record.add(run_field::kOutcome, success_ ? "succeeded" : "failed");
    record.add(run_field::kDuration, microseconds(duration_));
    if (hasStep) {
        record.add(run_field::kStep, static_cast<std::uint64_t>(failedStep_));
    }
    addError(record, error_, operation, secrets_);
    if (lost_ > 0) {
        record.add(run_field::kLost, std::uint64_t{lost_});
    }
    return record;
}

RunRecord::Written RunRecord::writeFor(Clock::duration time) {
    const Clock::time_point until = Clock::now() + time;
    bool wroteAny = false;
    while (written_ < pending_.size()) {
        if (!write(recordOf(pending_[written_]))) {
            return wroteAny ? Written::some : Written::nothing;
        }
        wroteAny = true;
        ++written_;
        if (Clock::now() >= until) {
            return Written::some;
        }
    }
    pending_.clear();
    written_ = 0;
    if (hasEnded_ && !write(recordOfEnd())) {
        return wroteAny ? Written::some : Written::nothing;
    }
    return Written::all;
}

void RunRecord::abandon() {
    lost_ += pending_.size() - written_;
    pending_.clear();
    written_ = 0;
    static_cast<void>(write(recordOfEnd()));
}

} // namespace qv
