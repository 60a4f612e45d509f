#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "tools/Commands.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/RunHistory.h"
#include "tools/Terminal.h"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <ctime>

namespace qv::tools {

namespace {

using Pairs = std::vector<std::pair<Value, Value>>;
using Style = Terminal::Style;

constexpr std::uint64_t kMicroseconds = 1'000'000; // in a second

std::string localTime(std::uint64_t microseconds) {
    const auto seconds = static_cast<std::time_t>(microseconds / kMicroseconds);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(seconds));
}

std::string secondsText(std::uint64_t microseconds) {
    return fmt::format("{:.3f} s", static_cast<double>(microseconds) / double{kMicroseconds});
}

std::string userText(std::uint64_t user) {
    const auto record = userRecord(static_cast<uid_t>(user));
    return record ? fmt::format("{} ({})", record->name, user) : std::to_string(user);
}

std::string outcomeText(const RunEntry& run) {
    return run.outcome.empty() ? "not ended" : run.outcome;
}

Style styleOf(std::string_view outcome) {
    if (outcome == "succeeded" || outcome == "changed") {
        return Style::good;
    }
    return outcome == "failed" ? Style::bad : Style::faint;
}

// "2026-11-22", "2026-11-22 14:30" on the local clock, or how long ago: "90m", "12h", "7d".
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
                   ? std::optional((now - count * kSeconds[unit]) * kMicroseconds)
                   : std::nullopt;
    }
    for (const char* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm fields{};
        fields.tm_isdst = -1;
        const char* stopped = ::strptime(text.c_str(), format, &fields);
        if (stopped != nullptr && *stopped == '\0') {
            return static_cast<std::uint64_t>(std::mktime(&fields)) * kMicroseconds;
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

Value strings(const std::vector<std::string>& texts) {
    std::vector<Value> values;
    values.reserve(texts.size());
    for (const std::string& text : texts) {
        values.push_back(Value::string(text));
    }
    return Value::array(std::move(values));
}

void addText(Pairs& pairs, std::string_view key, const std::string& text) {
    if (!text.empty()) {
        pairs.emplace_back(Value::string(key), Value::string(text));
    }
}

Value asValue(const StepEntry& step) {
    Pairs pairs{{Value::string("index"), Value::unsignedInteger(step.index)},
                {Value::string("outcome"), Value::string(step.outcome)},
                {Value::string("operation"), Value::string(step.operation)},
                {Value::string("text"), Value::string(step.text)},
                {Value::string("items"), strings(step.items)},
                {Value::string("microseconds"), Value::unsignedInteger(step.microseconds)}};
    if (!step.values.empty()) {
        pairs.emplace_back(Value::string("values"), strings(step.values));
    }
    addText(pairs, "errorDomain", step.errorDomain);
    addText(pairs, "errorCode", step.errorCode);
    addText(pairs, "error", step.error);
    addText(pairs, "ruleFault", step.ruleFault);
    return Value::dictionary(std::move(pairs));
}

Value asValue(const RunEntry& run, bool withSteps) {
    Pairs pairs{{Value::string("run"), Value::string(run.run)},
                {Value::string("begin"), Value::string(localTime(run.begin))},
                {Value::string("outcome"), Value::string(outcomeText(run))},
                {Value::string("microseconds"), Value::unsignedInteger(run.microseconds)},
                {Value::string("steps"), Value::unsignedInteger(run.stepCount)},
                {Value::string("client"), Value::string(run.client)},
                {Value::string("identifier"), Value::string(run.identifier)},
                {Value::string("team"), Value::string(run.team)},
                {Value::string("codeHash"), Value::string(run.codeHash)},
                {Value::string("user"), Value::unsignedInteger(run.user)},
                {Value::string("process"), Value::unsignedInteger(run.process)}};
    if (run.failedStep) {
        pairs.emplace_back(Value::string("failedStep"), Value::unsignedInteger(*run.failedStep));
    }
    addText(pairs, "errorDomain", run.errorDomain);
    addText(pairs, "errorCode", run.errorCode);
    addText(pairs, "error", run.error);
    if (run.lostSteps > 0) {
        pairs.emplace_back(Value::string("stepsWithoutRecord"),
                           Value::unsignedInteger(run.lostSteps));
    }
    if (withSteps) {
        std::vector<Value> steps;
        for (const StepEntry& step : run.steps) {
            steps.push_back(asValue(step));
        }
        pairs.emplace_back(Value::string("results"), Value::array(std::move(steps)));
    }
    return Value::dictionary(std::move(pairs));
}

void showList(const std::vector<RunEntry>& runs) {
    Terminal& out = Terminal::standardOutput();
    for (const RunEntry& run : runs) {
        const std::string outcome = outcomeText(run);
        out.line(fmt::format("{}  {}  {}  {} steps in {}, client {} ({}), user {}",
                             localTime(run.begin), run.run,
                             out.styled(fmt::format("{:9}", outcome), styleOf(outcome)),
                             run.stepCount, secondsText(run.microseconds), log::foreign(run.client),
                             log::foreign(run.identifier), userText(run.user)));
    }
}

void showFault(const std::string& domain, const std::string& code, const std::string& error) {
    if (!domain.empty()) {
        Terminal::standardOutput().line(fmt::format("      error: {}{}{} {}{}", log::foreign(error),
                                                    error.empty() ? "" : " (", log::foreign(domain),
                                                    log::foreign(code), error.empty() ? "" : ")"));
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
    out.line(fmt::format("outcome  {}, {} steps in {}", out.styled(outcome, styleOf(outcome)),
                         run.stepCount, secondsText(run.microseconds)));
    showFault(run.errorDomain, run.errorCode, run.error);
    for (const StepEntry& step : run.steps) {
        out.line(fmt::format("{:>5} {} {}", step.index + 1,
                             out.styled(fmt::format("{:9}", step.outcome), styleOf(step.outcome)),
                             log::foreign(step.text, 1000)));
        for (const std::string& value : step.values) {
            out.line("      " + log::foreign(value, 1000));
        }
        showFault(step.errorDomain, step.errorCode, step.error);
        if (!step.ruleFault.empty()) {
            out.line("      the rule has no value, so its block is closed: " +
                     log::foreign(step.ruleFault));
        }
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
            values.push_back(asValue(run, needsSteps));
        }
        out.line(jsonText(isOne ? values.front() : Value::array(std::move(values))));
    } else if (isOne) {
        showRun(runs->front());
    } else {
        showList(*runs);
    }
    return ExitStatus::success;
}

} // namespace qv::tools
