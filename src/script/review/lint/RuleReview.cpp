#include "script/review/lint/RuleReview.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/predicate/Parser.h"
#include "platform/predicate/Predicate.h"
#include "rules/QVRuleChecker.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace qv::review {

namespace {

using predicate::Expression;
using predicate::Tree;

constexpr std::string_view kLastError = "lastStatementExecutionError";
constexpr std::string_view kVariable = "fnc"; // the number of a call follows

/// A rule with a variable in place of each call, as it is parsed.
struct WithoutCalls {
    std::string text;
    std::vector<PlacedCall> calls;
    std::vector<std::size_t> places; // of the variables in the text
    std::optional<std::size_t> unterminated;
};

WithoutCalls withoutCalls(std::string_view rule) {
    WithoutCalls result;
    std::size_t done = 0;
    for (std::size_t begin = rule.find(kCallBegin); begin != std::string_view::npos;
         begin = rule.find(kCallBegin, done)) {
        PlacedCall placed{{}, begin, 0};
        const auto length = scanCall(rule.substr(begin + kCallBegin.size()), placed.call);
        if (!length) {
            result.unterminated = begin;
            break;
        }
        placed.length = kCallBegin.size() + *length;
        result.text += rule.substr(done, begin - done);
        result.places.push_back(result.text.size());
        result.text += fmt::format("${}{}", kVariable, result.calls.size());
        done = begin + placed.length;
        result.calls.push_back(std::move(placed));
    }
    result.text += rule.substr(done);
    return result;
}

std::size_t lengthOfVariable(std::size_t call) {
    return 1 + kVariable.size() + std::to_string(call).size();
}

// The place in the rule of a place in the text that is parsed.
std::size_t placeInRule(const WithoutCalls& text, std::size_t offset) {
    const auto after = std::ranges::upper_bound(text.places, offset);
    if (after == text.places.begin()) {
        return offset;
    }
    const auto index = static_cast<std::size_t>(after - text.places.begin()) - 1;
    const PlacedCall& call = text.calls[index];
    const std::size_t end = text.places[index] + lengthOfVariable(index);
    return offset < end ? call.offset : call.offset + call.length + (offset - end);
}

/// Looks at the tree of a rule.
class TreeReview {
public:
    TreeReview(std::string_view rule, const WithoutCalls& text, const Tree& tree,
               const QVRuleChecker& checker, RuleReading& reading)
        : rule_(rule), text_(text), tree_(tree), checker_(checker), reading_(reading) {}

    void review() {
        for (const Expression& node : tree_.nodes) {
            if (node.kind == Expression::Kind::subquery ||
                node.kind == Expression::Kind::assignment) {
                ownNames_.emplace_back(tree_.name(node));
            }
        }
        for (const Expression& node : tree_.nodes) {
            reviewNode(node);
        }
        if (asksForNothing_ && text_.calls.empty() && reading_.faults.empty()) {
            add(Check::constantRule, 0,
                {"the rule asks neither for the machine nor for the step before, so it is always "
                 "true or always false",
                 "leave the block out, or ask for what it depends on"});
        }
    }

private:
    using Kind = Expression::Kind;

    void add(Check check, std::size_t offset, Explanation explanation) {
        reading_.faults.push_back({check, offset, std::move(explanation)});
    }

    void reviewNode(const Expression& node) {
        switch (node.kind) {
        case Kind::keyPath:
            asksForNothing_ = false;
            if (node.operandCount == 0) {
                reviewKeyPath(tree_.name(node));
            }
            break;
        case Kind::variable:
            asksForNothing_ = false;
            reviewVariable(tree_.name(node));
            break;
        case Kind::constant:
            reviewConstant(tree_.value(node));
            break;
        case Kind::comparison:
            reviewOrder(node);
            break;
        case Kind::function:
        case Kind::invocation:
        case Kind::self:
            asksForNothing_ = false;
            break;
        default:
            break;
        }
    }

    // The first place of a name in the rule, as a whole word.
    [[nodiscard]] std::size_t placeOf(std::string_view name) const {
        const auto isPart = [&](std::size_t at) {
            return at < rule_.size() && (isLetterOrDigit(rule_[at]) || rule_[at] == '_');
        };
        std::size_t place = rule_.find(name);
        while (place != std::string_view::npos &&
               ((place > 0 && isPart(place - 1)) || isPart(place + name.size()))) {
            place = rule_.find(name, place + 1);
        }
        return place == std::string_view::npos ? 0 : place;
    }

    void reviewKeyPath(std::string_view path) {
        static constexpr std::array<std::string_view, 5> kOwnKeys = {
            "functions", "kvoValues", "locked", "self", "description"};
        const std::string_view first = path.substr(0, path.find_first_of(".@"));
        if (first == kLastError) {
            reading_.asksForLastError = true;
            return;
        }
        std::vector<std::string> known = {std::string(kLastError)};
        for (const auto& function : checker_.functions()) {
            const auto& prefix = function->functionKeyPathPrefix();
            if (prefix && prefix == first && first.size() < path.size()) {
                auto fault = faultOfQuestion(function->functionID(), path.substr(first.size() + 1));
                if (fault && unknown_.insert(path)) {
                    add(Check::unknownQuestion, placeOf(first), *std::move(fault));
                }
                return;
            }
            if (prefix) {
                known.push_back(*prefix);
            }
        }
        if (first.empty() || std::ranges::find(kOwnKeys, first) != kOwnKeys.end() ||
            !unknown_.insert(path)) {
            return;
        }
        const std::size_t place = placeOf(path);
        const bool isSubtracted =
            (place > 0 && rule_[place - 1] == '-') ||
            (place + path.size() < rule_.size() && rule_[place + path.size()] == '-');
        if (isSubtracted) {
            add(Check::unknownName, place,
                {fmt::format(
                     "\"-\" beside {} is read as a subtraction, of values that there are not",
                     inQuotes(path)),
                 "ask by a call, such as ${application(installed.NAME)}, in which a hyphen is part "
                 "of the name; put texts into quotes"});
            return;
        }
        add(Check::unknownName, place,
            {fmt::format("no value has the name {}{}", inQuotes(path), suggestion(first, known)),
             fmt::format("put a text into quotes; a key path begins with {}",
                         fmt::join(known, ", "))});
    }

    void reviewVariable(std::string_view name) {
        const bool isCall = name.starts_with(kVariable) && name.size() > kVariable.size() &&
                            isDigit(name[kVariable.size()]);
        if (!isCall && std::ranges::find(ownNames_, name) == ownNames_.end() &&
            unknown_.insert(name)) {
            add(Check::unknownName, placeOf(name),
                {fmt::format("there is no variable ${}", name),
                 "a call is written with braces: ${name(argument)}"});
        }
    }

    void reviewConstant(const Value& value) {
        if (!value.is(Value::Kind::string) || text_.calls.empty()) {
            return;
        }
        const std::string_view constant = value.asString();
        const std::size_t sign = constant.find("$" + std::string(kVariable));
        if (sign == std::string_view::npos) {
            return;
        }
        std::size_t index = 0;
        for (std::size_t i = sign + 1 + kVariable.size();
             i < constant.size() && isDigit(constant[i]) && index < text_.calls.size(); ++i) {
            index = 10 * index + static_cast<std::size_t>(constant[i] - '0');
        }
        const PlacedCall& call = text_.calls[std::min(index, text_.calls.size() - 1)];
        add(Check::callInQuotes, call.offset,
            {"the call stands in quotes and is part of their text, which is not its value",
             "write the call without quotes around it"});
    }

    [[nodiscard]] bool isVersion(const Expression& node) const {
        if (node.kind == Kind::keyPath && node.operandCount == 0) {
            const std::string_view path = tree_.name(node);
            return path.starts_with("version.");
        }
        if (node.kind != Kind::variable) {
            return false;
        }
        std::size_t index = 0;
        for (const char c : tree_.name(node)) {
            index = isDigit(c) && index <= text_.calls.size()
                        ? 10 * index + static_cast<std::size_t>(c - '0')
                        : index;
        }
        return tree_.name(node).starts_with(kVariable) && index < text_.calls.size() &&
               text_.calls[index].call.name == "version";
    }

    void reviewOrder(const Expression& node) {
        using enum predicate::Comparison;
        const bool isOrder = node.comparison >= less && node.comparison <= between;
        if (!isOrder || node.operandCount < 2 ||
            (!isVersion(tree_.operand(node, 0)) && !isVersion(tree_.operand(node, 1)))) {
            return;
        }
        const std::size_t place = rule_.find("version");
        add(Check::versionOrder, place == std::string_view::npos ? 0 : place,
            {"a version is a text, and texts are ordered by their characters: 10 stands before 9",
             "write ${version(of=os;greaterThan=10.9)} == YES; equalTo and lessThan are the "
             "others"});
    }

    /// Names that were told, each once.
    struct ToldNames {
        std::vector<std::string> names;
        bool insert(std::string_view name) {
            constexpr std::size_t kMost = 20; // more names would not help
            if (names.size() >= kMost || std::ranges::find(names, name) != names.end()) {
                return false;
            }
            names.emplace_back(name);
            return true;
        }
    };

    std::string_view rule_;
    const WithoutCalls& text_;
    const Tree& tree_;
    const QVRuleChecker& checker_;
    RuleReading& reading_;
    std::vector<std::string> ownNames_;
    ToldNames unknown_;
    bool asksForNothing_ = true;
};

Explanation explanationOfSyntax(std::string_view rule, const PredicateSyntaxError& error,
                                std::size_t place) {
    std::string mend = "try it with `qvcatalog rule 'RULE'` until it parses";
    if (place < rule.size() && rule[place] == '%') {
        mend = "write the value itself; nothing is put in place of % here, and %% in quotes is one "
               "percent sign";
    }
    return {fmt::format("the rule does not parse, so it is false: {}", error.cause()),
            std::move(mend)};
}

} // namespace

RuleReview::RuleReview() : checker_(QVRuleChecker::ruleCheckerWithDefaultFunctions(true)) {}
RuleReview::~RuleReview() = default;

const RuleReading& RuleReview::read(std::string_view rule) {
    const auto known = readings_.find(rule);
    return known != readings_.end() ? known->second
                                    : readings_.emplace(rule, readingOf(rule)).first->second;
}

RuleReading RuleReview::readingOf(std::string_view rule) const {
    RuleReading reading;
    WithoutCalls text;
    try {
        Predicate::requireLength(rule);
        text = withoutCalls(rule);
        if (text.unterminated) {
            reading.faults.push_back(
                {Check::ruleSyntax,
                 *text.unterminated,
                 {"the call has no \"}\" at its end, so the rule does not parse and is false",
                  "close the call; quotes in it come in pairs"}});
            return reading;
        }
        for (const PlacedCall& call : text.calls) {
            reviewCall(call, rule, *checker_, reading.faults);
        }
        const Tree tree = predicate::Parser(text.text).parse();
        TreeReview(rule, text, tree, *checker_, reading).review();
    } catch (const PredicateSyntaxError& error) {
        const std::size_t place = placeInRule(text, error.offset());
        reading.faults.push_back(
            {Check::ruleSyntax, place, explanationOfSyntax(rule, error, place)});
    }
    return reading;
}

} // namespace qv::review
