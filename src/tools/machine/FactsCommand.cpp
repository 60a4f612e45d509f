// The questions that rules can ask of a machine. Every fact stands as the question that a rule
// asks, and is answered by the functions of rules themselves, so that this shows what a rule will
// see.

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Exception.h"
#include "platform/system/KernelParameters.h"
#include "platform/system/ParameterFinding.h"
#include "rules/QVRuleChecker.h"
#include "rules/functions/ComputerModel.h"
#include "tools/machine/Machine.h"
#include "tools/machine/MachineCommands.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace qv::tools {

namespace {

struct Fact {
    std::string question;
    std::optional<Value> answer;
    std::string note = {};
};

class Facts {
public:
    Facts(const FactsOptions& options, Machine& machine)
        : options_(options), machine_(machine),
          checker_(QVRuleChecker::ruleCheckerWithDefaultFunctions(true, machine.services())) {}

    void addVersions() {
        static constexpr std::array<std::string_view, 9> kQuestions = {"os",
                                                                       "kernel",
                                                                       "hostApplication",
                                                                       "hostApplicationShort",
                                                                       "computerIdentifier",
                                                                       "computerModel",
                                                                       "computerVersion",
                                                                       "computerVersionMajor",
                                                                       "computerVersionMinor"};
        for (const std::string_view question : kQuestions) {
            const bool isOfHost = question.starts_with("hostApplication");
            add("version", question,
                isOfHost ? "of this command; a script gets the service's" : "");
        }
    }

    void addKernelParameters() {
        const KernelParameters parameters(machine_.services()->root,
                                          [] { return ComputerModel::read().model; });
        for (const std::string_view name : KernelParameters::names()) {
            addParameter(parameters, name);
        }
        if (options_.native) {
            for (const std::string& name : parameters.nativeNames()) {
                addParameter(parameters, name);
            }
        }
    }

    void addApplications() {
        for (const InstalledApplication& each : machine_.applications()) {
            const std::string target =
                each.identifier.empty() ? "AppName." + each.name : each.identifier;
            add("application", "path." + target, each.name);
            add("application", "isBundledInPackage." + target);
            add("version", target);
            const std::string question =
                fmt::format("${{version(of=application;bundleID={};useShortVersion=1)}}", target);
            if (isWanted(question)) {
                facts_.push_back({question, answerTo(question)});
            }
        }
    }

    [[nodiscard]] const std::vector<Fact>& facts() const noexcept { return facts_; }

private:
    void addParameter(const KernelParameters& parameters, std::string_view name) {
        const auto parameter = parameters.read(name);
        if (parameter && parameter->form == KernelParameter::Form::number) {
            add("sysctl", fmt::format("{}.{}", typeOf(*parameter), name));
        } else if (parameter && parameter->form == KernelParameter::Form::text) {
            add("sysctl", name);
        }
    }

    // The type that gives the number itself, and not what is left of one beyond the signed ones.
    static std::string_view typeOf(const KernelParameter& parameter) {
        std::int64_t number = 0;
        if (parameter.number.size() != sizeof number) {
            return "integer";
        }
        std::memcpy(&number, parameter.number.data(), sizeof number);
        const std::string_view text = parameter.text;
        const auto written = parameterNumber(text.substr(0, text.find('\0')));
        return number < 0 && !(written && written->isNegative) ? "unsignedInteger" : "integer";
    }

    // Adds a question, as a key path where a rule reads that as the same question.
    void add(std::string_view function, std::string_view parameter, const std::string& note = {}) {
        const std::string keyPath = fmt::format("{}.{}", function, parameter);
        const bool isOfWantedName = function == "application" && isWanted(note);
        if (!isWanted(keyPath) && !isOfWantedName) {
            return;
        }
        const std::string call = fmt::format("${{{}({})}}", function, parameter);
        std::optional<Value> answer = answerTo(call);
        const bool isWord = keyPath.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                                                      "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                      "0123456789_.") == std::string::npos;
        const Value rule = Value::string(fmt::format("{} == {}", keyPath, call));
        const bool isKeyPath = isWord && (!answer || checker_->runCheck(rule, nullptr));
        facts_.push_back({isKeyPath ? keyPath : call, std::move(answer), std::move(note)});
    }

    [[nodiscard]] std::optional<Value> answerTo(const std::string& question) {
        try {
            return checker_->computeFunction(question);
        } catch (const Exception&) {
            return std::nullopt;
        }
    }

    [[nodiscard]] bool isWanted(std::string_view question) const {
        if (options_.words.empty()) {
            return true;
        }
        return std::ranges::any_of(options_.words, [&](const std::string& word) {
            return question.find(word) != std::string_view::npos;
        });
    }

    const FactsOptions& options_;
    Machine& machine_;
    std::unique_ptr<QVRuleChecker> checker_;
    std::vector<Fact> facts_;
};

void print(const std::vector<Fact>& facts) {
    Terminal& out = Terminal::standardOutput();
    for (const Fact& fact : facts) {
        const std::string note =
            fact.note.empty() ? "" : "  " + out.styled("# " + fact.note, Terminal::Style::faint);
        const std::string answer =
            fact.answer ? out.styled(onOneLine(description(*fact.answer)), Terminal::Style::plain)
                        : out.styled("no value", Terminal::Style::faint);
        out.line(fmt::format("{:<44} {}{}", out.styled(fact.question, Terminal::Style::plain),
                             answer, note));
    }
}

std::string asJSON(const std::vector<Fact>& facts) {
    std::vector<std::pair<Value, Value>> pairs;
    pairs.reserve(facts.size());
    for (const Fact& fact : facts) {
        pairs.emplace_back(Value::string(fact.question), fact.answer.value_or(Value()));
    }
    return jsonText(withFormat({{Value::string("facts"), Value::dictionary(std::move(pairs))}}));
}

} // namespace

Result facts(const FactsOptions& options) {
    const auto machine = Machine::below(options.root);
    if (!machine) {
        return tl::unexpected(machine.error());
    }
    Facts facts(options, **machine);
    facts.addVersions();
    facts.addKernelParameters();
    facts.addApplications();
    if (facts.facts().empty()) {
        return failure(ExitStatus::failed,
                       "no question, and no application's name, has this in it");
    }
    if (options.json) {
        Terminal::standardOutput().line(asJSON(facts.facts()));
    } else {
        print(facts.facts());
    }
    return ExitStatus::success;
}

} // namespace qv::tools
