#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "tools/service/RunHistory.h"
#include "tools/service/RunText.h"
#include "tools/service/ServiceCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <ctime>

namespace qv::tools {

namespace {

// Reads "2026-11-22", "2026-11-22 14:30" on the local clock, or a time ago: "90m", "12h", "7d".
std::optional<std::uint64_t> momentFrom(const std::string& text) {
    std::uint64_t count = 0;
    const char* end = text.data() + text.size();
    const auto [rest, fault] = std::from_chars(text.data(), end, count);
    if (fault == std::errc() && rest + 1 == end) {
        constexpr std::string_view kUnits = "smhd";
        constexpr std::array<std::uint64_t, 4> kSeconds = {1, 60, 3600, 86400};
        const std::size_t unit = kUnits.find(*rest);
        const auto now = static_cast<std::uint64_t>(std::time(nullptr));
        return unit < kSeconds.size() && count <= now / kSeconds[unit]
                   ? std::optional((now - count * kSeconds[unit]) * kMicrosecondsOfSecond)
                   : std::nullopt;
    }
    for (const char* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm fields{};
        fields.tm_isdst = -1;
        const char* stopped = ::strptime(text.c_str(), format, &fields);
        if (stopped != nullptr && *stopped == '\0') {
            return static_cast<std::uint64_t>(std::mktime(&fields)) * kMicrosecondsOfSecond;
        }
    }
    return std::nullopt;
}

bool touches(const RunEntry& run, std::string_view item) {
    return std::ranges::any_of(run.steps, [&](const StepEntry& step) {
        return std::ranges::any_of(step.items, [&](std::string_view each) {
            return each == item ||
                   (each.starts_with(item) &&
                    (item.ends_with('/') || each.substr(item.size()).starts_with('/')));
        });
    });
}

bool isWanted(const RunEntry& run, const LogOptions& options) {
    const bool isOfClient =
        options.client.empty() || run.client == options.client || run.identifier == options.client;
    const auto user = userRecord(static_cast<uid_t>(run.user));
    const bool isOfUser = options.user.empty() || options.user == std::to_string(run.user) ||
                          (user && user->name == options.user);
    return isOfClient && isOfUser && run.run.starts_with(options.run) &&
           (options.item.empty() || touches(run, options.item)) &&
           (!options.failed || run.outcome == "failed");
}

void showList(const std::vector<RunEntry>& runs) {
    Terminal& out = Terminal::standardOutput();
    for (const RunEntry& run : runs) {
        const std::string outcome = outcomeText(run);
        out.line(fmt::format("{}  {}  {}  {} steps in {}, client {} ({}), user {}",
                             localTime(run.begin), run.run,
                             out.styled(fmt::format("{:9}", outcome), styleOfOutcome(outcome)),
                             run.stepCount, secondsText(run.microseconds), log::foreign(run.client),
                             log::foreign(run.identifier), userText(run.user)));
    }
}

void showRun(const RunEntry& run) {
    Terminal& out = Terminal::standardOutput();
    const std::string outcome = outcomeText(run);
    out.line(fmt::format("run      {}", run.run));
    out.line(fmt::format("began    {}", localTime(run.begin)));
    out.line(fmt::format("client   {} ({}), team {}, code directory {}", log::foreign(run.client),
                         log::foreign(run.identifier), log::foreign(run.team), run.codeHash));
    out.line(fmt::format("for      user {}, process {}", userText(run.user), run.process));
    out.line(fmt::format("outcome  {}, {} steps in {}",
                         out.styled(outcome, styleOfOutcome(outcome)), run.stepCount,
                         secondsText(run.microseconds)));
    showFault(run.errorDomain, run.errorCode, run.error);
    for (const StepEntry& step : run.steps) {
        showStep(step);
    }
    if (run.lostSteps > 0) {
        out.line(fmt::format("{} steps are not recorded: the journal did not take them.",
                             run.lostSteps));
    }
}

} // namespace

Result showLog(const LogOptions& options) {
    const std::optional<std::uint64_t> since =
        options.since.empty() ? std::optional<std::uint64_t>(0) : momentFrom(options.since);
    if (!since) {
        return failure(ExitStatus::usage,
                       fmt::format("--since takes a date such as \"2026-11-22 14:30\", or how long "
                                   "ago, such as 90m, 12h or 7d, not \"{}\"",
                                   options.since));
    }
    const bool needsSteps = !options.run.empty() || !options.item.empty();
    auto history = RunHistory::open(options.journal, needsSteps ? RunHistory::Steps::with
                                                                : RunHistory::Steps::without);
    auto runs = history ? history->runsSince(*since) : tl::unexpected(history.error());
    if (!runs) {
        return failure(ExitStatus::usage,
                       fmt::format("the journal cannot be read: {}", reasonOf(runs.error())));
    }
    std::erase_if(*runs, [&](const RunEntry& run) { return !isWanted(run, options); });
    const bool isOne = !options.run.empty();
    if (isOne && runs->size() != 1) {
        return failure(ExitStatus::failed,
                       runs->empty() ? fmt::format("the journal has no run {}; `qvcatalog log` "
                                                   "lists those that you may read",
                                                   options.run)
                                     : fmt::format("{} runs begin with {}; give more of its digits",
                                                   runs->size(), options.run));
    }
    if (!isOne && !options.all && runs->size() > options.last) {
        runs->erase(runs->begin(), runs->end() - static_cast<std::ptrdiff_t>(options.last));
    }
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        std::vector<Value> values;
        for (const RunEntry& run : *runs) {
            values.push_back(runAsValue(run, needsSteps));
        }
        out.line(jsonText(withFormat({{Value::string("runs"), Value::array(std::move(values))}}),
                          options.jsonOnOneLine));
    } else if (isOne) {
        showRun(runs->front());
    } else {
        showList(*runs);
    }
    return ExitStatus::success;
}

} // namespace qv::tools
