#include "platform/applescript/running/Calculation.h"
#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/ScriptRun.h"

#include <algorithm>
#include <array>
#include <random>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

/// The class that an addition wants its direct object to have.
struct DirectClass {
    Term command;
    Term type;
};
constexpr auto kDirectClasses = std::to_array<DirectClass>({
    {Term::doShellScript, Term::text},
    {Term::displayDialog, Term::text},
    {Term::displayAlert, Term::text},
    {Term::displayNotification, Term::text},
    {Term::say, Term::text},
    {Term::openLocation, Term::text},
    {Term::systemAttribute, Term::text},
    {Term::delay, Term::number},
    {Term::beep, Term::integer},
    {Term::chooseFromList, Term::list},
});

/// Throws if the world could not copy the texts.
void expectCopies(const Command& command) {
    constexpr std::size_t kCopies = 2;
    const auto sizeOf = [](const ScriptValue& value) {
        return value.is(Kind::text) ? value.asText().size() : 0;
    };
    std::size_t size = sizeOf(command.direct);
    for (const auto& [label, value] : command.parameters) {
        size += sizeOf(value);
    }
    ScriptValue::expectBytes(size * kCopies);
}

bool isMeantToRun(const CommandNode& node, const ScriptValue& direct, bool hasDirect) {
    return node.command == Term::run && (!hasDirect || direct.is(Kind::script));
}

} // namespace

const Node* ScriptRun::parameterOf(const CommandNode& node, Term label) noexcept {
    const auto found = std::ranges::find(node.parameters, label, &CommandNode::Parameter::label);
    return found != node.parameters.end() ? found->value : nullptr;
}

std::vector<std::pair<Term, ScriptValue>> ScriptRun::parametersOf(const CommandNode& node,
                                                                  bool asks) {
    std::vector<std::pair<Term, ScriptValue>> parameters;
    parameters.reserve(node.parameters.size());
    for (const CommandNode::Parameter& parameter : node.parameters) {
        parameters.emplace_back(parameter.label, asks ? evaluate(*parameter.value)
                                                      : resolved(object(*parameter.value)));
    }
    return parameters;
}

ScriptValue ScriptRun::command(const CommandNode& node) {
    switch (node.command) {
    case Term::round: {
        const Node* rounding = parameterOf(node, Term::rounding);
        const ScriptValue direction = rounding != nullptr ? evaluate(*rounding) : ScriptValue();
        return rounded(node.direct != nullptr ? evaluate(*node.direct) : ScriptValue(),
                       direction.is(Kind::constant) ? direction.asTerm() : Term::toNearest,
                       context_);
    }
    case Term::offset:
        return offset(node);
    case Term::randomNumber:
        return randomNumber(node);
    case Term::asciiCharacter:
    case Term::asciiNumber:
        return converted(node);
    case Term::currentDate:
        return ScriptValue::date(context_.world.now());
    default:
        return infoOf(node.command).dictionary == Dictionary::additions ? addition(node)
                                                                        : sent(node);
    }
}

ScriptValue ScriptRun::addition(const CommandNode& node) {
    Command command;
    command.name = node.command;
    command.timeout = timeout_;
    command.hasDirect = node.direct != nullptr;
    if (command.hasDirect) {
        command.direct = evaluate(*node.direct);
    }
    const auto* wanted = std::ranges::find(kDirectClasses, node.command, &DirectClass::command);
    if (command.hasDirect && wanted != kDirectClasses.end()) {
        command.direct = coerced(command.direct, wanted->type, context_);
    }
    if (node.command == Term::log && !command.direct.is(Kind::text)) {
        command.direct = ScriptValue::text(sourceText(command.direct, context_.world));
    }
    command.parameters = parametersOf(node, true);
    expectCopies(command);
    return context_.world.perform(command);
}

ScriptValue ScriptRun::sentTo(const Specifier& target, Command command) {
    command.timeout = timeout_;
    expectCopies(command);
    const Specifier* told = isOfApplication(told_) ? &told_.asSpecifier() : nullptr;
    const bool isSame = told != nullptr && told->application == target.application &&
                        told->byIdentifier == target.byIdentifier;
    return context_.world.send(isSame ? *told : target, command);
}

ScriptValue ScriptRun::sent(const CommandNode& node) {
    if (node.command == Term::count) {
        if (auto count = countQuickly(node)) {
            return std::move(*count);
        }
    }
    if (node.command == Term::exists && node.direct != nullptr && !isOfApplication(told_) &&
        !existsHere(*node.direct)) {
        return ScriptValue::boolean(false);
    }
    Command command;
    command.name = node.command;
    command.hasDirect = node.direct != nullptr;
    if (command.hasDirect) {
        command.direct = resolved(object(*node.direct));
        if (auto answer = answeredHere(node, command.direct)) {
            return std::move(*answer);
        }
    }
    const bool isOfDirect = command.hasDirect && isOfApplication(command.direct);
    if (!isOfDirect && !isOfApplication(told_)) {
        if (isMeantToRun(node, command.direct, command.hasDirect)) {
            return call(tree_.run, std::vector<ScriptValue>(tree_.run.parameters.size(),
                                                            ScriptValue::list({})));
        }
        if (node.command == Term::activate) {
            return {}; // the script's process has no window to bring to the front
        }
        failToUnderstand(command.hasDirect && node.command != Term::open ? command.direct : script_,
                         wordsOf(node.command), context_);
    }
    command.parameters = parametersOf(node, false);
    Specifier target;
    if (isOfDirect) {
        target.application = command.direct.asSpecifier().application;
        target.byIdentifier = command.direct.asSpecifier().byIdentifier;
    } else {
        target = told_.asSpecifier();
    }
    return sentTo(target, std::move(command));
}

// Answers commands on values, which need no application.
std::optional<ScriptValue> ScriptRun::answeredHere(const CommandNode& node,
                                                   const ScriptValue& direct) {
    if (isOfApplication(direct)) {
        return node.command == Term::get && direct.asSpecifier().steps.empty()
                   ? std::optional(direct)
                   : std::nullopt;
    }
    if (node.command == Term::get) {
        return direct;
    }
    if (node.command == Term::count) {
        const auto count = parts_.countOf(direct);
        return count ? std::optional(wholeNumber(static_cast<std::int64_t>(*count))) : std::nullopt;
    }
    if (node.command == Term::exists && !isOfApplication(told_)) {
        return ScriptValue::boolean(!direct.is(Kind::file) ||
                                    context_.world.fileExists(direct.asFilePath()));
    }
    return std::nullopt;
}

bool ScriptRun::existsHere(const Node& node) {
    try {
        (void)object(node);
        return true;
    } catch (const ScriptError& error) {
        if (error.number != error_number::kCannotGet &&
            error.number != error_number::kInvalidIndex &&
            error.number != error_number::kFileNotFound) {
            throw;
        }
        return false;
    }
}

// `count words of x` makes no list of them.
std::optional<ScriptValue> ScriptRun::countQuickly(const CommandNode& node) {
    if (node.direct == nullptr || node.direct->kind != NodeKind::element) {
        return std::nullopt;
    }
    const auto& element = static_cast<const Element&>(*node.direct);
    if (element.form != Form::every || element.filter != nullptr || element.container == nullptr ||
        element.type == Term::text || !TextElements::has(element.type)) {
        return std::nullopt;
    }
    const ScriptValue* text = inPlace(*element.container);
    if (text == nullptr || !text->is(Kind::text)) {
        return std::nullopt;
    }
    return wholeNumber(static_cast<std::int64_t>(parts_.texts().count(*text, element.type)));
}

// The place in characters; 0 if the text is not there.
ScriptValue ScriptRun::offset(const CommandNode& node) {
    const Node* of = parameterOf(node, Term::of);
    const Node* in = parameterOf(node, Term::in);
    if (of == nullptr || in == nullptr) {
        fail(error_number::kParameterMissing, "The in parameter is missing for offset.");
    }
    const ScriptValue wanted = coerced(evaluate(*of), Term::text, context_);
    const ScriptValue text = coerced(evaluate(*in), Term::text, context_);
    const auto found = firstOccurrence(text.asText(), wanted.asText(), context_);
    if (!found) {
        return ScriptValue::integer(0);
    }
    const std::size_t before = parts_.texts().countBefore(text, Term::character, found->begin);
    return wholeNumber(static_cast<std::int64_t>(before + 1));
}

// `ASCII character 65` and `ASCII number "A"`.
ScriptValue ScriptRun::converted(const CommandNode& node) {
    constexpr std::int64_t kLast = 0x7F;
    const ScriptValue value = evaluate(*node.direct);
    if (node.command == Term::asciiCharacter) {
        const std::int64_t code = integerOf(value, context_);
        if (code < 0 || code > kLast) {
            failToMake(value, Term::character, context_);
        }
        return ScriptValue::text(std::string(1, static_cast<char>(code)));
    }
    const ScriptValue text = coerced(value, Term::text, context_);
    if (text.asText().empty() || static_cast<unsigned char>(text.asText().front()) > kLast) {
        failToMake(value, Term::number, context_);
    }
    return ScriptValue::integer(text.asText().front());
}

// A number from 0 to 1, up to a number, or from one to another. Integers give integers, bounds
// included.
ScriptValue ScriptRun::randomNumber(const CommandNode& node) {
    constexpr double kParts = 9007199254740992.0; // 2^53
    const auto number = [&](const Node* given, std::int64_t otherwise) {
        return given != nullptr ? numberOf(evaluate(*given), context_)
                                : ScriptValue::integer(otherwise);
    };
    const Node* from = parameterOf(node, Term::from);
    const Node* to = parameterOf(node, Term::to);
    const bool hasRange = from != nullptr || to != nullptr;
    const double fraction =
        static_cast<double>(randomBelow(static_cast<std::uint64_t>(kParts))) / kParts;
    if (!hasRange && node.direct == nullptr) {
        return ScriptValue::real(fraction);
    }
    ScriptValue first = hasRange ? number(from, 0) : ScriptValue::integer(0);
    ScriptValue last = hasRange ? number(to, 100) : number(node.direct, 0);
    if (realOf(last) < realOf(first)) {
        first.swap(last);
    }
    if (first.is(Kind::integer) && last.is(Kind::integer)) {
        const auto count = static_cast<std::uint64_t>(last.asInteger() - first.asInteger()) + 1;
        return wholeNumber(first.asInteger() + static_cast<std::int64_t>(randomBelow(count)));
    }
    return ScriptValue::real(realOf(first) * (1 - fraction) + realOf(last) * fraction);
}

} // namespace qv::applescript
