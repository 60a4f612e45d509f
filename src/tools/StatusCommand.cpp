#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "tools/Commands.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/RunHistory.h"
#include "tools/RunText.h"
#include "tools/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>

namespace qv::tools {

namespace {

std::uint64_t microsecondsNow() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

// A run without an end whose service has ended was cut off.
bool isUnderWay(const RunEntry& run) {
    const auto service = ProcessIdentity::ofPID(static_cast<pid_t>(run.service));
    return run.outcome.empty() && service && !(*service)->hasEnded();
}

tl::expected<std::vector<RunEntry>, Error> runsUnderWay(const std::string& journal) {
    auto all = RunHistory::open(journal, RunHistory::Steps::without);
    auto runs = all ? all->runsSince(0) : tl::unexpected(all.error());
    if (!runs) {
        return runs;
    }
    std::erase_if(*runs, [](const RunEntry& run) { return !isUnderWay(run); });
    if (runs->empty()) {
        return runs;
    }
    auto detailed = RunHistory::open(journal, RunHistory::Steps::with);
    auto recent =
        detailed ? detailed->runsSince(runs->front().begin) : tl::unexpected(detailed.error());
    if (recent) {
        std::erase_if(*recent, [](const RunEntry& run) { return !isUnderWay(run); });
    }
    return recent;
}

void showUnderWay(const RunEntry& run) {
    Terminal& out = Terminal::standardOutput();
    out.line(fmt::format("{}  since {}, for {}, client {} ({}), user {}, process {}", run.run,
                         localTime(run.begin), secondsText(microsecondsNow() - run.begin),
                         log::foreign(run.client), log::foreign(run.identifier), userText(run.user),
                         run.process));
    out.line(run.steps.empty()
                 ? fmt::format("  of {} steps none is recorded yet", run.stepCount)
                 : fmt::format("  {} of {} steps recorded, the last: {}", run.steps.size(),
                               run.stepCount, log::foreign(run.steps.back().text)));
}

} // namespace

Result status(const StatusOptions& options) {
    const auto runs = runsUnderWay(options.journal);
    if (!runs) {
        return failure(ExitStatus::usage,
                       fmt::format("the journal cannot be read: {}", reasonOf(runs.error())));
    }
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        std::vector<Value> values;
        for (const RunEntry& run : *runs) {
            values.push_back(runAsValue(run, true));
        }
        out.line(jsonText(Value::array(std::move(values))));
        return ExitStatus::success;
    }
    if (runs->empty()) {
        out.line("No script runs now.");
    }
    std::ranges::for_each(*runs, showUnderWay);
    return ExitStatus::success;
}

} // namespace qv::tools
