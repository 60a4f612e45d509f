#pragma once

#include "platform/predicate/evaluation/Budget.h"
#include "platform/predicate/evaluation/KeyValueCoding.h"
#include "platform/predicate/language/Expression.h"

#include <string_view>
#include <utility>
#include <vector>

namespace qv::predicate {

/// One evaluation of a tree. Its recursion is bounded by the depth of the tree.
class Evaluation {
public:
    /// All parameters have to outlive the evaluation. `variables`: a dictionary, or the null
    /// object. `entries`: the object's dictionary, where it is nothing else.
    Evaluation(const Tree& tree, KeyValueCoding& object, const Value& variables,
               const Budget& budget, const Value* entries = nullptr) noexcept
        : tree_(tree), object_(object), variables_(variables), entries_(entries), budget_(budget) {}

    [[nodiscard]] bool holds(const Expression& predicate);
    /// Notes the outcome of every node there from now on.
    void follow(Trace& trace) noexcept { trace_ = &trace; }

private:
    [[nodiscard]] bool decided(const Expression& predicate);
    [[nodiscard]] bool compares(const Expression& comparison);
    [[nodiscard]] bool quantified(const Expression& comparison, const Value& left,
                                  const Value& right);

    /// The value itself, or `scratch`, which then holds it.
    [[nodiscard]] const Value& valueOf(const Expression& expression, Value& scratch);
    [[nodiscard]] const Value& found(const Expression& expression, Value& scratch);
    [[nodiscard]] const Value& operandOf(const Expression& expression, std::size_t index,
                                         Value& scratch) {
        return valueOf(tree_.operand(expression, index), scratch);
    }
    /// The variable that the evaluation itself binds; a null pointer when there is none.
    [[nodiscard]] Value* local(std::string_view name);
    // Values that `valueOf` makes anew:
    [[nodiscard]] Value made(const Expression& expression);
    [[nodiscard]] const Value& variable(const Expression& variable, Value& scratch);
    [[nodiscard]] Value assigned(const Expression& assignment);
    [[nodiscard]] Value aggregate(const Expression& aggregate);
    [[nodiscard]] Value keyPath(const Expression& path);
    [[nodiscard]] Value element(const Expression& element);
    [[nodiscard]] Value called(const Expression& function);
    [[nodiscard]] Value chosen(const Expression& ternary);
    [[nodiscard]] Value subquery(const Expression& subquery);

    const Tree& tree_;
    KeyValueCoding& object_;
    const Value& variables_;
    const Value* entries_; // answers single keys without a copy
    [[nodiscard]] Outcome& outcomeOf(const Expression& node) const {
        return (*trace_)[static_cast<std::size_t>(&node - tree_.nodes.data())];
    }

    Budget budget_;
    Trace* trace_ = nullptr;
    std::vector<std::pair<std::string_view, Value>> locals_; // later ones hide earlier ones
};

} // namespace qv::predicate
