#include "platform/applescript/running/Calculation.h"
#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/Number.h"
#include "platform/applescript/running/ScriptRun.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

constexpr std::size_t kLongestMessage = std::size_t{1} << 20U; // in bytes

struct NumberText {
    std::int64_t number;
    std::string_view text;
};
// The text of `error number n` where the script gives none.
constexpr auto kNumberTexts = std::to_array<NumberText>({
    {error_number::kUserCanceled, "User canceled."},
    {error_number::kFileNotFound, "File some object wasn’t found."},
    {error_number::kOutOfMemory, "Out of memory."},
    {-600, "Application isn’t running."},
    {-609, "Connection is invalid."},
    {error_number::kCannotConvert, "Can’t make some data into the expected type."},
    {error_number::kTimedOut, "AppleEvent timed out."},
    {error_number::kNoUserInteraction, "No user interaction allowed."},
    {error_number::kCannotGet, "Can’t get some object."},
    {error_number::kGeneral, "An unknown error has occurred."},
    {error_number::kStackOverflow, "Stack overflow."},
    {error_number::kEventFailed, "AppleEvent handler failed."},
    {-10004, "A privilege violation occurred."},
});

std::string textOfErrorNumber(std::int64_t number) {
    const auto* row = std::ranges::find(kNumberTexts, number, &NumberText::number);
    return row != kNumberTexts.end()
               ? std::string(row->text)
               : "An error of type " + std::to_string(number) + " has occurred.";
}

} // namespace

ScriptRun::Flow ScriptRun::runBlock(const Block& block) {
    for (const Node* statement : block.statements) {
        const Flow flow = runStatement(*statement);
        if (flow != Flow::next) {
            return flow;
        }
    }
    return Flow::next;
}

ScriptRun::Flow ScriptRun::runStatement(const Node& node) {
    step();
    if (node.kind == NodeKind::set) {
        const auto& set = static_cast<const SetStatement&>(node);
        if (!setQuickly(set)) {
            runSet(set);
        }
        return Flow::next;
    }
    try {
        return dispatch(node);
    } catch (ScriptError& error) {
        if (!error.range) {
            error.range = node.range();
        }
        throw;
    }
}

ScriptRun::Flow ScriptRun::dispatch(const Node& node) {
    switch (node.kind) {
    case NodeKind::copy: {
        const auto& copy = static_cast<const CopyStatement&>(node);
        result_ = deepCopy(evaluate(*copy.value), context_);
        assign(*copy.target, result_);
        return Flow::next;
    }
    case NodeKind::ifElse:
        return runIf(static_cast<const IfStatement&>(node));
    case NodeKind::repeat:
        return runRepeat(static_cast<const RepeatStatement&>(node));
    case NodeKind::tell:
        return runTell(static_cast<const TellStatement&>(node));
    case NodeKind::tryBlock:
        return runTry(static_cast<const TryStatement&>(node));
    case NodeKind::error:
        runError(static_cast<const ErrorStatement&>(node));
    case NodeKind::returnValue: {
        const Node* value = static_cast<const ReturnStatement&>(node).value;
        result_ = value != nullptr ? evaluate(*value) : ScriptValue::undefined();
        return Flow::returned;
    }
    case NodeKind::exitRepeat:
        return Flow::exitRepeat;
    case NodeKind::considering:
        return runConsidering(static_cast<const ConsideringStatement&>(node));
    case NodeKind::timeout:
        return runTimeout(static_cast<const TimeoutStatement&>(node));
    case NodeKind::block:
        return runBlock(static_cast<const Block&>(node));
    case NodeKind::expression:
        result_ = evaluate(*static_cast<const ExpressionStatement&>(node).expression);
        return Flow::next;
    default:
        result_ = evaluate(node);
        return Flow::next;
    }
}

// `set x to y + 1`, of numbers: what most loops do, without a value on the way.
inline bool ScriptRun::setQuickly(const SetStatement& node) noexcept {
    if (node.target->kind != NodeKind::variable || node.value->kind != NodeKind::binary) {
        return false;
    }
    const auto& sum = static_cast<const Binary&>(*node.value);
    const ScriptValue* left = inPlace(*sum.left);
    const ScriptValue* right = inPlace(*sum.right);
    if (left == nullptr || right == nullptr) {
        return false;
    }
    const Number value = quickNumber(sum.operation, *left, *right);
    if (value.kind == Number::Kind::none) {
        return false;
    }
    ScriptValue& slot = slotOf(static_cast<const Variable&>(*node.target));
    if (value.kind == Number::Kind::integer) {
        slot.setInteger(value.integer);
        result_.setInteger(value.integer);
    } else {
        slot.setReal(value.real);
        result_.setReal(value.real);
    }
    return true;
}

void ScriptRun::runSet(const SetStatement& node) {
    try {
        if (node.target->kind != NodeKind::variable) {
            ScriptValue value = evaluate(*node.value);
            assign(*node.target, value);
            result_ = std::move(value);
            return;
        }
        const auto& variable = static_cast<const Variable&>(*node.target);
        if (!extendInPlace(variable, *node.value)) {
            ScriptValue value = evaluate(*node.value);
            result_ = value;
            slotOf(variable) = std::move(value);
        }
    } catch (ScriptError& error) {
        if (!error.range) {
            error.range = node.range();
        }
        throw;
    }
}

// `set x to x & y & z`, where x is a text or a list that nobody else sees, takes the time of y and
// z alone. The result of the statement before may be that very value; nobody can ask for it any
// more once y and z are there.
bool ScriptRun::extendInPlace(const Variable& variable, const Node& value) {
    std::vector<const Node*> added; // the last one first
    const Node* first = &value;
    while (first->kind == NodeKind::binary &&
           static_cast<const Binary&>(*first).operation == BinaryOperator::concatenate) {
        added.push_back(static_cast<const Binary&>(*first).right);
        first = static_cast<const Binary&>(*first).left;
    }
    ScriptValue& slot = slotOf(variable);
    if (added.empty() || first->kind != NodeKind::variable ||
        &slotOf(static_cast<const Variable&>(*first)) != &slot ||
        !(slot.is(Kind::text) || slot.is(Kind::list))) {
        return false;
    }
    const Term type = slot.is(Kind::text) ? Term::text : Term::list;
    ScriptValue before = slot;
    std::vector<ScriptValue> more;
    for (auto node = added.rbegin(); node != added.rend(); ++node) {
        more.push_back(coerced(evaluate(**node), type, context_));
    }
    result_ = ScriptValue::undefined();
    if (!slot.sameAs(before)) {
        slot = before;
    }
    before = ScriptValue();
    for (const ScriptValue& each : more) {
        if (!slot.isSoleOwner()) {
            slot = concatenated(slot, each, context_);
        } else if (type == Term::text) {
            slot.append(each.asText());
        } else {
            slot.expectItems(each.asList().size());
            slot.asList().insert(slot.asList().end(), each.asList().begin(), each.asList().end());
            slot.countAgain();
        }
    }
    result_ = slot;
    return true;
}

ScriptRun::Flow ScriptRun::runIf(const IfStatement& node) {
    for (const IfStatement::Branch& branch : node.branches) {
        if (condition(*branch.condition)) {
            return runBlock(*branch.block);
        }
    }
    return node.otherwise != nullptr ? runBlock(*node.otherwise) : Flow::next;
}

ScriptRun::Flow ScriptRun::runTell(const TellStatement& node) {
    ScriptValue target = resolved(object(*node.target));
    if (target.isConstant(Term::currentApplication)) {
        target = script_;
    }
    const Restored it(it_);
    const Restored told(told_);
    it_ = target;
    told_ = std::move(target);
    return runBlock(*node.block);
}

ScriptRun::Flow ScriptRun::runTry(const TryStatement& node) {
    ScriptError caught;
    try {
        return runBlock(*node.block);
    } catch (ScriptError& error) {
        if (error.endsScript) {
            throw;
        }
        caught = std::move(error);
    }
    return runHandling(node, caught);
}

ScriptRun::Flow ScriptRun::runHandling(const TryStatement& node, const ScriptError& error) {
    if (node.onError == nullptr) {
        return Flow::next;
    }
    const auto store = [&](const Variable* variable, ScriptValue value) {
        if (variable != nullptr) {
            slotOf(*variable) = std::move(value);
        }
    };
    store(node.message, ScriptValue::text(error.message()));
    store(node.number, ScriptValue::integer(error.number));
    store(node.from, error.offender);
    store(node.partialResult,
          error.partialResult.isMissing() ? ScriptValue::list({}) : error.partialResult);
    store(node.to, error.expected);
    return runBlock(*node.onError);
}

void ScriptRun::runError(const ErrorStatement& node) {
    ScriptError error;
    if (node.number != nullptr) {
        error.number = integer(*node.number);
    }
    if (node.message != nullptr) {
        const ScriptValue message = coerced(evaluate(*node.message), Term::text, context_);
        if (message.asText().size() > kLongestMessage) {
            fail(error_number::kOutOfMemory, "Out of memory.");
        }
        error.brief = message.asText();
    } else {
        error.brief = textOfErrorNumber(error.number);
    }
    const auto take = [&](const Node* from, ScriptValue& to) {
        if (from != nullptr) {
            to = object(*from);
        }
    };
    take(node.from, error.offender);
    take(node.partialResult, error.partialResult);
    take(node.to, error.expected);
    error.range = node.range();
    throwError(std::move(error));
}

ScriptRun::Flow ScriptRun::runConsidering(const ConsideringStatement& node) {
    const Restored attention(context_.attention);
    context_.attention =
        static_cast<std::uint8_t>((context_.attention | node.considered) & ~node.ignored);
    parts_.texts().forget();
    const Flow flow = runBlock(*node.block);
    parts_.texts().forget();
    return flow;
}

ScriptRun::Flow ScriptRun::runTimeout(const TimeoutStatement& node) {
    constexpr double kMostSeconds = 1e9;
    const Restored timeout(timeout_);
    const double seconds = realOf(numberOf(evaluate(*node.seconds), context_));
    timeout_ = std::chrono::milliseconds(
        static_cast<std::int64_t>(std::clamp(seconds, 0.0, kMostSeconds) * 1000));
    return runBlock(*node.block);
}

} // namespace qv::applescript
