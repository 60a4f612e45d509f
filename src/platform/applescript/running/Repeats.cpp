#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/ScriptRun.h"

#include <cmath>

namespace qv::applescript {

namespace {
using Kind = ScriptValue::Kind;
} // namespace

ScriptRun::Flow ScriptRun::runRepeat(const RepeatStatement& node) {
    using RepeatForm = RepeatStatement::Form;
    switch (node.form) {
    case RepeatForm::forever:
        for (;;) {
            step();
            const Flow flow = runBlock(*node.block);
            if (flow != Flow::next) {
                return flow == Flow::exitRepeat ? Flow::next : flow;
            }
        }
    case RepeatForm::times:
        return repeatTimes(node);
    case RepeatForm::whileTrue:
        return repeatWhile(node, true);
    case RepeatForm::until:
        return repeatWhile(node, false);
    case RepeatForm::counting:
        return repeatCounting(node);
    default:
        return repeatIn(node);
    }
}

ScriptRun::Flow ScriptRun::repeatTimes(const RepeatStatement& node) {
    for (std::int64_t left = integer(*node.first); left > 0; --left) {
        step();
        const Flow flow = runBlock(*node.block);
        if (flow != Flow::next) {
            return flow == Flow::exitRepeat ? Flow::next : flow;
        }
    }
    return Flow::next;
}

ScriptRun::Flow ScriptRun::repeatWhile(const RepeatStatement& node, bool wanted) {
    while (condition(*node.first) == wanted) {
        step();
        const Flow flow = runBlock(*node.block);
        if (flow != Flow::next) {
            return flow == Flow::exitRepeat ? Flow::next : flow;
        }
    }
    return Flow::next;
}

ScriptRun::Flow ScriptRun::repeatCounting(const RepeatStatement& node) {
    constexpr double kMostExact = 9.0e15;
    const ScriptValue first = numberOf(evaluate(*node.first), context_);
    const ScriptValue last = numberOf(evaluate(*node.last), context_);
    const ScriptValue step_ =
        node.step != nullptr ? numberOf(evaluate(*node.step), context_) : ScriptValue::integer(1);
    const double end = realOf(last);
    if (!first.is(Kind::integer) || !step_.is(Kind::integer) || std::abs(end) > kMostExact) {
        return repeatCountingReals(node, realOf(first), end, realOf(step_));
    }
    const std::int64_t by = step_.asInteger();
    const auto bound = static_cast<std::int64_t>(by < 0 ? std::ceil(end) : std::floor(end));
    for (std::int64_t i = first.asInteger(); by < 0 ? i >= bound : i <= bound; i += by) {
        step();
        if (i >= -kMostInteger && i <= kMostInteger) {
            slotOf(*node.variable).setInteger(i);
        } else {
            slotOf(*node.variable) = wholeNumber(i);
        }
        const Flow flow = runBlock(*node.block);
        if (flow != Flow::next) {
            return flow == Flow::exitRepeat ? Flow::next : flow;
        }
    }
    return Flow::next;
}

ScriptRun::Flow ScriptRun::repeatCountingReals(const RepeatStatement& node, double first,
                                               double last, double by) {
    for (double round = 0;; ++round) {
        const double value = first + round * by;
        if (by < 0 ? value < last : value > last) {
            return Flow::next;
        }
        step();
        slotOf(*node.variable) = ScriptValue::real(value);
        const Flow flow = runBlock(*node.block);
        if (flow != Flow::next) {
            return flow == Flow::exitRepeat ? Flow::next : flow;
        }
    }
}

// The variable holds the item itself, so that it can be compared and passed on like any value;
// `set contents of` it changes the list.
ScriptRun::Flow ScriptRun::repeatIn(const RepeatStatement& node) {
    ScriptValue list = evaluate(*node.first);
    if (list.is(Kind::text)) {
        list = parts_.get(list, {.form = Form::every, .term = Term::character});
    } else if (!list.is(Kind::list)) {
        list = coerced(list, Term::list, context_);
    }
    Loop loop{&slotOf(*node.variable), list, 0, loop_};
    const Restored outer(loop_);
    loop_ = &loop;
    const std::size_t count = list.asList().size();
    for (; loop.place < count; ++loop.place) {
        step();
        if (loop.place >= list.asList().size()) {
            failToGet(list,
                      {.form = Form::index,
                       .term = Term::item,
                       .key = wholeNumber(static_cast<std::int64_t>(loop.place + 1))},
                      context_);
        }
        slotOf(*node.variable) = ScriptValue(list.asList()[loop.place]);
        const Flow flow = runBlock(*node.block);
        if (flow != Flow::next) {
            return flow == Flow::exitRepeat ? Flow::next : flow;
        }
    }
    return Flow::next;
}

} // namespace qv::applescript
