#include "tools/service/RunText.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/UserRecord.h"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>

namespace qv::tools {

namespace {

using Pairs = std::vector<std::pair<Value, Value>>;

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

Pairs pairsOf(const StepEntry& step) {
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
    return pairs;
}

} // namespace

std::string localTime(std::uint64_t microseconds) {
    const auto seconds = static_cast<std::time_t>(microseconds / kMicrosecondsOfSecond);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(seconds));
}

std::uint64_t microsecondsNow() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

std::string secondsText(std::uint64_t microseconds) {
    return fmt::format("{:.3f} s",
                       static_cast<double>(microseconds) / double{kMicrosecondsOfSecond});
}

std::string userText(std::uint64_t user) {
    const auto record = userRecord(static_cast<uid_t>(user));
    return record ? fmt::format("{} ({})", record->name, user) : std::to_string(user);
}

std::string outcomeText(const RunEntry& run) {
    return run.outcome.empty() ? "not ended" : run.outcome;
}

std::string countsText(const RunEntry& run) {
    constexpr std::array<std::string_view, 5> kOutcomes = {"changed", "unchanged", "done",
                                                           "skipped", "failed"};
    std::string text = fmt::format("{} step{}", run.stepCount, run.stepCount == 1 ? "" : "s");
    std::string_view separator = ": ";
    for (const std::string_view outcome : kOutcomes) {
        if (const auto count = std::ranges::count(run.steps, outcome, &StepEntry::outcome)) {
            text += fmt::format("{}{} {}", separator, count, outcome);
            separator = ", ";
        }
    }
    return text;
}

Terminal::Style styleOfOutcome(std::string_view outcome) {
    if (outcome == "succeeded" || outcome == "changed") {
        return Terminal::Style::good;
    }
    return outcome == "failed" ? Terminal::Style::bad : Terminal::Style::faint;
}

void showFault(const std::string& domain, const std::string& code, const std::string& error) {
    if (!domain.empty()) {
        Terminal::standardOutput().line(fmt::format("      error: {}{}{} {}{}", log::foreign(error),
                                                    error.empty() ? "" : " (", log::foreign(domain),
                                                    log::foreign(code), error.empty() ? "" : ")"));
    }
}

void showStep(const StepEntry& step) {
    Terminal& out = Terminal::standardOutput();
    out.line(
        fmt::format("{:>5} {} {}", step.index + 1,
                    out.styled(fmt::format("{:9}", step.outcome), styleOfOutcome(step.outcome)),
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

Value stepRecord(const StepEntry& step) {
    Pairs pairs = pairsOf(step);
    pairs.insert(pairs.begin(), {Value::string("record"), Value::string("step")});
    return Value::dictionary(std::move(pairs));
}

Value runAsValue(const RunEntry& run, bool withSteps) {
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
            steps.push_back(Value::dictionary(pairsOf(step)));
        }
        pairs.emplace_back(Value::string("results"), Value::array(std::move(steps)));
    }
    return Value::dictionary(std::move(pairs));
}

} // namespace qv::tools
