#pragma once

#include "platform/applescript/language/Tree.h"
#include "platform/applescript/running/Coercions.h"
#include "platform/applescript/running/Context.h"
#include "platform/applescript/running/Interpreter.h"
#include "platform/applescript/running/Parts.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qv::applescript {

/// One run of a script: walks over its tree. Calls of handlers nest on the stack, within bounds of
/// their number and of the stack's size.
class ScriptRun {
public:
    ScriptRun(const Tree& tree, OutsideWorld& world, const Limits& limits);

    ScriptValue run();

private:
    enum class Flow : std::uint8_t { next, exitRepeat, returned };
    using Step = Specifier::Step;
    using Form = Specifier::Form;

    void step() { bounds_.step(); }
    void requireStack() const;

    // Statements
    Flow runBlock(const Block& block);
    Flow runStatement(const Node& node);
    Flow dispatch(const Node& node);
    bool setQuickly(const SetStatement& node) noexcept;
    void runSet(const SetStatement& node);
    Flow runIf(const IfStatement& node);
    Flow runTell(const TellStatement& node);
    Flow runTry(const TryStatement& node);
    Flow runHandling(const TryStatement& node, const ScriptError& error);
    [[noreturn]] void runError(const ErrorStatement& node);
    Flow runConsidering(const ConsideringStatement& node);
    Flow runTimeout(const TimeoutStatement& node);
    Flow runRepeat(const RepeatStatement& node);
    Flow repeatTimes(const RepeatStatement& node);
    Flow repeatWhile(const RepeatStatement& node, bool wanted);
    Flow repeatCounting(const RepeatStatement& node);
    Flow repeatCountingReals(const RepeatStatement& node, double first, double last, double step);
    Flow repeatIn(const RepeatStatement& node);
    bool extendInPlace(const Variable& variable, const Node& value);

    // Expressions. `evaluate` gives a value, asked of the application where it is an object of one;
    // `object` leaves objects as they are.
    ScriptValue evaluate(const Node& node);
    ScriptValue evaluateOther(const Node& node);
    ScriptValue dispatchExpression(const Node& node);
    ScriptValue object(const Node& node);
    ScriptValue evaluateBinary(const Binary& node);
    ScriptValue evaluateOperands(const Binary& node, const ScriptValue& left,
                                 const ScriptValue& right);
    ScriptValue evaluateLogical(const Binary& node);
    ScriptValue evaluateUnary(const Unary& node);
    ScriptValue evaluateList(const ListNode& node);
    ScriptValue evaluateRecord(const RecordNode& node);
    ScriptValue evaluateCoercion(const Coercion& node);
    ScriptValue evaluateApplication(const ApplicationObject& node);
    bool condition(const Node& node);
    std::int64_t integer(const Node& node);

    [[nodiscard]] ScriptValue& slotOf(const Variable& variable) noexcept {
        return slots_[static_cast<std::size_t>(variable.scope)][variable.slot];
    }
    /// The value of a literal or a variable where it stands; null for anything else.
    [[nodiscard]] const ScriptValue* inPlace(const Node& node) noexcept {
        if (node.kind == NodeKind::variable) {
            return &slotOf(static_cast<const Variable&>(node));
        }
        return node.kind == NodeKind::literal ? &static_cast<const Literal&>(node).value : nullptr;
    }
    ScriptValue readVariable(const Variable& variable);

    /// The script's own word on its progress, which nobody is shown; null for other terms.
    [[nodiscard]] ScriptValue* progressOf(Term property) noexcept {
        const bool isProgress =
            property >= Term::progressTotalSteps && property <= Term::progressAdditionalDescription;
        return isProgress ? &progress_.at(static_cast<std::size_t>(property) -
                                          static_cast<std::size_t>(Term::progressTotalSteps))
                          : nullptr;
    }

    // References
    ScriptValue containerOf(const Node* container);
    ScriptValue property(const PropertyOf& node, bool asks);
    ScriptValue element(const Element& node, bool asks);
    ScriptValue part(const ScriptValue& container, const Step& step, bool asks);
    ScriptValue fileAsObject(const ScriptValue& file);
    ScriptValue filtered(const Element& node, const ScriptValue& container, Term type);
    ScriptValue quickItem(const Element& node);
    Step stepOf(const Element& node);
    ScriptValue keyOf(const Node& node);
    ScriptValue scriptProperty(const Step& step);
    ScriptValue* scriptVariable(std::string_view name);
    /// The value that a reference to part of a value leads to now; other values as they are.
    ScriptValue resolved(const ScriptValue& value);
    /// Asks the application for the object.
    ScriptValue asked(const ScriptValue& object, std::optional<Term> type = {});
    ScriptValue referenceTo(const ReferenceTo& node);

    // Objects of applications
    static ScriptValue extended(const ScriptValue& object, Step step);
    Specifier::Filter filterOf(const Node& node);
    Specifier::Filter comparisonOf(const Binary& node);
    static std::optional<std::vector<Term>> pathOf(const Node& node);

    // Assignment
    void assign(const Node& target, const ScriptValue& value);
    void assignList(const ListNode& target, const ScriptValue& value);
    void assignRecord(const RecordNode& target, const ScriptValue& value);
    void assignProperty(const PropertyOf& target, const ScriptValue& value);
    void assignPart(const ScriptValue& container, const Step& step, const ScriptValue& value);
    void assignContents(const Node& reference, const ScriptValue& value);
    void setDelimiters(const ScriptValue& value);

    // Handlers
    ScriptValue call(const Handler& handler, std::vector<ScriptValue> arguments);
    ScriptValue callPositional(const HandlerCall& node);
    ScriptValue callLabelled(const LabelledCall& node);
    const Handler& handlerFor(std::string_view name, const Node* receiver);

    // Commands
    ScriptValue command(const CommandNode& node);
    ScriptValue addition(const CommandNode& node);
    ScriptValue sent(const CommandNode& node);
    ScriptValue sentTo(const Specifier& target, Command command);
    std::optional<ScriptValue> answeredHere(const CommandNode& node, const ScriptValue& direct);
    std::optional<ScriptValue> countQuickly(const CommandNode& node);
    bool existsHere(const Node& node);
    ScriptValue offset(const CommandNode& node);
    ScriptValue randomNumber(const CommandNode& node);
    ScriptValue converted(const CommandNode& node);
    [[nodiscard]] static const Node* parameterOf(const CommandNode& node, Term label) noexcept;
    std::vector<std::pair<Term, ScriptValue>> parametersOf(const CommandNode& node, bool asks);

    /// A `repeat with x in` at work: `contents of x` leads to its list.
    struct Loop {
        const ScriptValue* variable;
        ScriptValue list;
        std::size_t place;
        Loop* outer;
    };
    /// Puts back at its end what it was given.
    template <typename T> struct Restored {
        explicit Restored(T& place_) : place(place_), before(place_) {}
        Restored(const Restored&) = delete;
        Restored(Restored&&) = delete;
        Restored& operator=(const Restored&) = delete;
        Restored& operator=(Restored&&) = delete;
        ~Restored() { place = std::move(before); }
        T& place;
        T before;
    };

    const Tree& tree_;
    Bounds bounds_;
    Context context_;
    Parts parts_;
    std::unordered_map<std::string_view, const Handler*> handlers_;
    std::vector<ScriptValue> globals_;
    std::array<ScriptValue*, 2> slots_{}; ///< by Scope
    ScriptValue result_ = ScriptValue::undefined();
    ScriptValue script_ = ScriptValue::script();
    ScriptValue it_ = script_;
    ScriptValue told_ = script_; ///< by the `tell` around
    Loop* loop_ = nullptr;
    std::array<ScriptValue, 4> progress_{};
    std::chrono::milliseconds timeout_ = std::chrono::minutes(2);

    unsigned depth_ = 0;
    unsigned mostDepth_;
    std::uintptr_t stack_ = 0;
};

} // namespace qv::applescript
