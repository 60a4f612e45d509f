#include "platform/foundation/values/Description.h"
#include "platform/predicate/Predicate.h"
#include "platform/predicate/evaluation/Functions.h"
#include "platform/predicate/language/Expression.h"
#include "platform/predicate/language/Language.h"
#include "platform/predicate/language/Literals.h"

#include <fmt/core.h>

#include <algorithm>
#include <string>

namespace qv::predicate {

namespace {

using Kind = Expression::Kind;

std::string_view spelling(Position position) {
    switch (position) {
    case Position::first:
        return "FIRST";
    case Position::last:
        return "LAST";
    case Position::size:
        return "SIZE";
    case Position::subscript:
        break;
    }
    return "";
}

std::string lettersOf(Modifiers modifiers) {
    std::string letters;
    letters += modifiers.caseInsensitive ? "c" : "";
    letters += modifiers.diacriticInsensitive ? "d" : "";
    letters += modifiers.normalized ? "n" : "";
    letters += modifiers.localeSensitive ? "l" : "";
    return letters.empty() ? letters : '[' + letters + ']';
}

std::string literalOf(const Value& constant) {
    if (constant.isNull()) {
        return "NULL";
    }
    if (constant.is(Value::Kind::boolean)) {
        return constant.asBoolean() ? "TRUE" : "FALSE";
    }
    return constant.is(Value::Kind::string) ? literalOfString(constant.asString())
                                            : literalOfNumber(constant);
}

// Each key that is reserved gets its `#`.
std::string pathText(std::string_view path) {
    std::string text;
    while (true) {
        const std::size_t dot = path.find('.');
        const std::string_view key = path.substr(0, dot);
        text += reservedWord(key) == Symbol::none ? "" : "#";
        text += key;
        if (dot == std::string_view::npos) {
            return text;
        }
        text += '.';
        path.remove_prefix(dot + 1);
    }
}

Level levelOf(const Expression& node) {
    switch (node.kind) {
    case Kind::disjunction:
        return Level::disjunction;
    case Kind::conjunction:
        return Level::conjunction;
    case Kind::negation:
        return Level::negation;
    case Kind::comparison:
        return Level::comparison;
    case Kind::assignment:
        return Level::assignment;
    case Kind::arithmetic:
        return levelOf(node.arithmetic);
    default:
        return Level::unary;
    }
}

class Printer {
public:
    explicit Printer(const Tree& tree) : tree_(tree) {}

    std::string print() {
        put(tree_.root());
        return std::move(text_);
    }

private:
    void put(const Expression& node) {
        switch (node.kind) {
        case Kind::truth:
            text_ += node.truth ? "TRUEPREDICATE" : "FALSEPREDICATE";
            break;
        case Kind::negation:
            text_ += "NOT ";
            putAt(operand(node, 0), Level::negation);
            break;
        case Kind::conjunction:
            putList(node, " AND ", Level::negation);
            break;
        case Kind::disjunction:
            putList(node, " OR ", Level::conjunction);
            break;
        case Kind::comparison:
            putComparison(node);
            break;
        default:
            putExpression(node);
        }
    }

    void putExpression(const Expression& node) {
        switch (node.kind) {
        case Kind::constant:
            text_ += literalOf(tree_.value(node));
            break;
        case Kind::self:
            text_ += "SELF";
            break;
        case Kind::variable:
            text_ += fmt::format("${}", tree_.name(node));
            break;
        case Kind::assignment:
            text_ += fmt::format("${} := ", tree_.name(node));
            putAt(operand(node, 0), Level::assignment);
            break;
        case Kind::arithmetic:
            putArithmetic(node);
            break;
        case Kind::minus:
            text_ += '-';
            putAt(operand(node, 0), Level::unary);
            break;
        case Kind::keyPath:
        case Kind::element:
            putPostfix(node);
            break;
        default:
            putCall(node);
        }
    }

    void putCall(const Expression& node) {
        switch (node.kind) {
        case Kind::aggregate:
            text_ += '{';
            break;
        case Kind::function:
            text_ += fmt::format("{}(", functionAt(node.function).name);
            break;
        case Kind::cast:
            text_ += "CAST(";
            break;
        case Kind::invocation:
            text_ += "FUNCTION(";
            break;
        case Kind::ternary:
            text_ += "TERNARY(";
            break;
        default:
            text_ += "SUBQUERY(";
            putAt(operand(node, 0), Level::assignment);
            text_ += fmt::format(", ${}, ", tree_.name(node));
            put(operand(node, 1));
            text_ += ')';
            return;
        }
        putList(node, ", ", Level::disjunction);
        text_ += node.kind == Kind::aggregate ? '}' : ')';
    }

    void putComparison(const Expression& node) {
        if (node.quantifier != Quantifier::single) {
            text_ += spelling(node.quantifier);
            text_ += ' ';
        }
        putAt(operand(node, 0), Level::sum);
        text_ += ' ';
        text_ += spelling(node.comparison);
        text_ += lettersOf(node.modifiers);
        text_ += ' ';
        putAt(operand(node, 1), Level::sum);
    }

    // Chains lean to the left.
    void putArithmetic(const Expression& node) {
        const Level level = levelOf(node);
        putAt(operand(node, 0), level);
        text_ += fmt::format(" {} ", spelling(node.arithmetic));
        putAt(operand(node, 1), static_cast<Level>(static_cast<int>(level) + 1));
    }

    void putPostfix(const Expression& node) {
        if (node.operandCount > 0) {
            const Expression& of = operand(node, 0);
            // A path behind a path would become one with it, and a point behind a number its own.
            const bool runsInto = node.kind == Kind::keyPath &&
                                  (of.kind == Kind::keyPath || of.kind == Kind::constant);
            putBraced(of, runsInto || levelOf(of) < Level::unary || of.kind == Kind::minus);
        }
        if (node.kind == Kind::keyPath) {
            text_ += node.operandCount > 0 ? "." : "";
            text_ += pathText(tree_.name(node));
            return;
        }
        text_ += '[';
        if (node.position == Position::subscript) {
            put(operand(node, 1));
        } else {
            text_ += spelling(node.position);
        }
        text_ += ']';
    }

    void putList(const Expression& node, std::string_view between, Level least) {
        for (std::size_t i = 0; i < node.operandCount; ++i) {
            text_ += i == 0 ? "" : between;
            putAt(operand(node, i), least);
        }
    }

    void putAt(const Expression& node, Level least) { putBraced(node, levelOf(node) < least); }

    void putBraced(const Expression& node, bool braced) {
        text_ += braced ? "(" : "";
        put(node);
        text_ += braced ? ")" : "";
    }

    [[nodiscard]] const Expression& operand(const Expression& node, std::size_t index) const {
        return tree_.operand(node, index);
    }

    const Tree& tree_;
    std::string text_;
};

// A node without its operands, in a few words.
std::string titleOf(const Tree& tree, const Expression& node) {
    switch (node.kind) {
    case Kind::truth:
        return node.truth ? "TRUEPREDICATE" : "FALSEPREDICATE";
    case Kind::negation:
        return "NOT";
    case Kind::conjunction:
        return "AND";
    case Kind::disjunction:
        return "OR";
    case Kind::comparison:
        return fmt::format("{}{}{}{}", spelling(node.quantifier),
                           node.quantifier == Quantifier::single ? "" : " ",
                           spelling(node.comparison), lettersOf(node.modifiers));
    case Kind::constant:
        return literalOf(tree.value(node));
    case Kind::aggregate:
        return "{}";
    case Kind::self:
        return "SELF";
    case Kind::keyPath:
        return fmt::format("{}{}", node.operandCount > 0 ? "." : "", pathText(tree.name(node)));
    case Kind::variable:
        return fmt::format("${}", tree.name(node));
    case Kind::assignment:
        return fmt::format("${} :=", tree.name(node));
    case Kind::element:
        return fmt::format("[{}]", spelling(node.position));
    case Kind::arithmetic:
        return std::string(spelling(node.arithmetic));
    case Kind::minus:
        return "unary -";
    case Kind::function:
        return fmt::format("{}()", functionAt(node.function).name);
    case Kind::cast:
        return "CAST";
    case Kind::invocation:
        return "FUNCTION";
    case Kind::ternary:
        return "TERNARY";
    case Kind::subquery:
        return fmt::format("SUBQUERY ${}", tree.name(node));
    }
    return "";
}

// `times`: the number of evaluations of a list of constants around the node, as one value.
void addParts(const Tree& tree, const Trace& trace, const Expression& node, std::size_t level,
              std::optional<std::size_t> times, std::vector<PredicatePart>& parts) {
    Outcome outcome = trace[static_cast<std::size_t>(&node - tree.nodes.data())];
    if (times) {
        outcome = {*times, tree.value(node)};
    } else if (node.kind == Kind::aggregate && node.value != Expression::kNoValue) {
        times = outcome.evaluations;
    }
    parts.push_back(
        {level, titleOf(tree, node), node.isPredicate(), outcome.evaluations, outcome.last});
    for (std::size_t i = 0; i < node.operandCount; ++i) {
        addParts(tree, trace, tree.operand(node, i), level + 1, times, parts);
    }
}

} // namespace

} // namespace qv::predicate

std::string qv::indentation(std::size_t level) {
    constexpr std::size_t kMost = 32;
    return std::string(2 * std::min(level, kMost), ' ') +
           (level > kMost ? fmt::format("{}: ", level) : "");
}

namespace qv::predicate {

std::string formatOf(const Tree& tree) { return Printer(tree).print(); }

std::string dumpOf(const Tree& tree) {
    std::string text;
    for (const PredicatePart& part : partsOf(tree, Trace(tree.nodes.size()))) {
        text += fmt::format("{}{}\n", indentation(part.level), part.title);
    }
    return text;
}

std::vector<PredicatePart> partsOf(const Tree& tree, const Trace& trace) {
    std::vector<PredicatePart> parts;
    addParts(tree, trace, tree.root(), 0, std::nullopt, parts);
    return parts;
}

} // namespace qv::predicate
