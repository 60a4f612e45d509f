#include "tools/service/RunHistory.h"

#include "platform/foundation/configuration/Configuration.h"
#include "script/record/RunFields.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <unistd.h>

namespace qv::tools {

namespace {

std::uint64_t numberOf(std::string_view text) {
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::vector<std::string> valuesOf(const JournalEntry& entry, std::string_view name) {
    std::vector<std::string> values;
    for (const auto& [field, value] : entry.fields) {
        if (field == name) {
            values.push_back(value);
        }
    }
    return values;
}

// Returns true for a record of the service among those of root's processes. The journal finds out
// the unit when it takes the record, and no more once the service has ended.
bool isOfService(const JournalEntry& entry) {
    const std::string_view unit = entry["_SYSTEMD_UNIT"];
    return configuration::kIsDevelopment || unit.empty() ||
           unit == "com.larkwen.qvcatalog.helper.service";
}

// A developer's service has a journal of its own on a machine that has none.
std::string usualFolder() {
    const std::string own = std::string(configuration::kDevelopmentFolder) + "/run/journal";
    return configuration::kIsDevelopment && ::access(own.c_str(), R_OK | X_OK) == 0 ? own
                                                                                    : std::string();
}

StepEntry stepOf(const JournalEntry& entry) {
    return {.index = numberOf(entry[run_field::kStep]),
            .outcome = std::string(entry[run_field::kOutcome]),
            .operation = std::string(entry[run_field::kOperation]),
            .text = std::string(entry[run_field::kText]),
            .items = valuesOf(entry, run_field::kItem),
            .values = valuesOf(entry, run_field::kValue),
            .microseconds = numberOf(entry[run_field::kDuration]),
            .errorDomain = std::string(entry[run_field::kErrorDomain]),
            .errorCode = std::string(entry[run_field::kErrorCode]),
            .error = std::string(entry[run_field::kError]),
            .ruleFault = std::string(entry[run_field::kRuleFault])};
}

void takeClient(RunEntry& run, const JournalEntry& entry) {
    run.client = entry[run_field::kClient];
    run.identifier = entry[run_field::kIdentifier];
    run.team = entry[run_field::kTeam];
    run.codeHash = entry[run_field::kCodeHash];
    run.stepCount = numberOf(entry[run_field::kStepCount]);
}

void takeEnd(RunEntry& run, const JournalEntry& entry) {
    run.outcome = entry[run_field::kOutcome];
    run.microseconds = numberOf(entry[run_field::kDuration]);
    if (!entry[run_field::kStep].empty()) {
        run.failedStep = numberOf(entry[run_field::kStep]);
    }
    run.errorDomain = entry[run_field::kErrorDomain];
    run.errorCode = entry[run_field::kErrorCode];
    run.error = entry[run_field::kError];
    run.lostSteps = numberOf(entry[run_field::kLost]);
}

} // namespace

bool hasJournal() {
    return ::access(std::string(configuration::kJournalSocket).c_str(), F_OK) == 0;
}

tl::expected<RunHistory, Error> RunHistory::open(const std::string& folder, Steps steps) {
    auto reader = JournalReader::open(folder.empty() ? usualFolder() : folder);
    if (!reader) {
        return tl::unexpected(reader.error());
    }
    Error error = reader->match("_UID", "0");
    for (const std::string_view kind : {run_field::kBegin, run_field::kEnd, run_field::kStepEnd}) {
        if (!error && (kind != run_field::kStepEnd || steps == Steps::with)) {
            error = reader->match(run_field::kKind, kind);
        }
    }
    if (error) {
        return tl::unexpected(std::move(error));
    }
    return RunHistory(std::move(*reader));
}

RunEntry& RunHistory::take(const JournalEntry& entry) {
    const std::string_view id = entry[run_field::kRun];
    // The latest are asked for most.
    const auto known = std::find_if(runs_.rbegin(), runs_.rend(),
                                    [&](const RunEntry& run) { return run.run == id; });
    const bool isNew = known == runs_.rend();
    RunEntry& run = isNew ? runs_.emplace_back() : *known;
    if (isNew) {
        run.run = id;
        run.begin = entry.microseconds;
        run.user = numberOf(entry[run_field::kUser]);
        run.process = numberOf(entry[run_field::kProcess]);
        run.service = numberOf(entry["_PID"]);
    }
    const std::string_view kind = entry[run_field::kKind];
    if (kind == run_field::kStepEnd) {
        run.steps.push_back(stepOf(entry));
    } else {
        takeClient(run, entry);
    }
    if (kind == run_field::kEnd) {
        takeEnd(run, entry);
    }
    return run;
}

tl::expected<std::vector<RunEntry>, Error> RunHistory::runsSince(std::uint64_t microseconds) {
    if (Error error = followFrom(microseconds)) {
        return tl::unexpected(std::move(error));
    }
    while (true) {
        const tl::expected<RunEntry*, Error> run = next(std::chrono::microseconds::zero());
        if (!run) {
            return tl::unexpected(run.error());
        }
        if (*run == nullptr) {
            return std::vector<RunEntry>(std::move_iterator(runs_.begin()),
                                         std::move_iterator(runs_.end()));
        }
    }
}

tl::expected<RunEntry*, Error> RunHistory::next(std::chrono::microseconds time) {
    for (;;) {
        tl::expected<bool, Error> found = reader_.next();
        if (found && !*found && time > std::chrono::microseconds::zero()) {
            reader_.wait(time);
            found = reader_.next();
        }
        if (!found) {
            return tl::unexpected(found.error());
        }
        if (!*found) {
            return nullptr;
        }
        const tl::expected<JournalEntry, Error> entry = reader_.entry();
        if (!entry) {
            return tl::unexpected(entry.error());
        }
        if (isOfService(*entry)) {
            return &take(*entry);
        }
    }
}

} // namespace qv::tools
