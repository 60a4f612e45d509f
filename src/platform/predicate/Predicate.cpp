#include "platform/predicate/Predicate.h"

#include "platform/foundation/values/Description.h"
#include "platform/predicate/Parser.h"
#include "platform/predicate/evaluation/Evaluation.h"

#include <fmt/core.h>

namespace qv {

namespace {

// A value as the evaluated object.
class EvaluatedValue final : public KeyValueCoding {
public:
    explicit EvaluatedValue(const Value& value) noexcept : value_(value) {}

    std::optional<Value> valueForKey(std::string_view key) override {
        predicate::Budget budget;
        return qv::valueForKeyPath(value_, key, budget);
    }
    std::optional<Value> valueForKeyPath(std::string_view path,
                                         predicate::Budget& budget) override {
        return qv::valueForKeyPath(value_, path, budget);
    }
    Value self() override { return value_; }
    [[nodiscard]] std::string description() const override {
        return fmt::format("<{}>", className(value_.kind()));
    }

private:
    const Value& value_;
};

} // namespace

struct Predicate::Parsed {
    predicate::Tree tree;
};

Predicate Predicate::predicateWithFormat(std::string_view text) {
    return Predicate(std::make_shared<const Parsed>(Parsed{predicate::Parser(text).parse()}));
}

void Predicate::requireLength(std::string_view text) {
    constexpr std::size_t kLongest = std::size_t{1} << 20U;
    if (text.size() > kLongest) {
        predicate::failAt(text, kLongest, fmt::format("it is longer than {} bytes", kLongest));
    }
}

bool Predicate::evaluateWithObject(KeyValueCoding& object, const Value& substitutionVariables,
                                   const predicate::Budget& budget,
                                   std::vector<PredicatePart>* parts) const {
    const predicate::Tree& tree = parsed_->tree;
    predicate::Evaluation evaluation(tree, object, substitutionVariables, budget);
    if (parts == nullptr) {
        return evaluation.holds(tree.root());
    }
    predicate::Trace trace(tree.nodes.size());
    evaluation.follow(trace);
    try {
        const bool value = evaluation.holds(tree.root());
        *parts = predicate::partsOf(tree, trace);
        return value;
    } catch (...) {
        *parts = predicate::partsOf(tree, trace);
        throw;
    }
}

bool Predicate::evaluateWithObject(const Value& object, const Value& substitutionVariables) const {
    const predicate::Tree& tree = parsed_->tree;
    EvaluatedValue evaluated(object);
    const Value* entries = object.is(Value::Kind::dictionary) ? &object : nullptr;
    return predicate::Evaluation(tree, evaluated, substitutionVariables, {}, entries)
        .holds(tree.root());
}

std::string Predicate::predicateFormat() const { return predicate::formatOf(parsed_->tree); }

std::string Predicate::tree() const { return predicate::dumpOf(parsed_->tree); }

} // namespace qv
