#include "platform/predicate/Predicate.h"

#include "platform/foundation/values/Description.h"
#include "platform/predicate/Evaluation.h"
#include "platform/predicate/Parser.h"

#include <fmt/core.h>

namespace qv {

namespace {

// A value as the evaluated object.
class EvaluatedValue final : public KeyValueCoding {
public:
    explicit EvaluatedValue(const Value& value) noexcept : value_(value) {}

    std::optional<Value> valueForKey(std::string_view key) override {
        return qv::valueForKeyPath(value_, key);
    }
    Value valueForKeyPath(std::string_view path) override {
        return qv::valueForKeyPath(value_, path);
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

bool Predicate::evaluateWithObject(KeyValueCoding& object,
                                   const Value& substitutionVariables) const {
    const predicate::Tree& tree = parsed_->tree;
    return predicate::Evaluation(tree, object, substitutionVariables).holds(tree.root());
}

bool Predicate::evaluateWithObject(const Value& object, const Value& substitutionVariables) const {
    const predicate::Tree& tree = parsed_->tree;
    EvaluatedValue evaluated(object);
    const Value* entries = object.is(Value::Kind::dictionary) ? &object : nullptr;
    return predicate::Evaluation(tree, evaluated, substitutionVariables, entries)
        .holds(tree.root());
}

std::string Predicate::predicateFormat() const { return predicate::formatOf(parsed_->tree); }

std::string Predicate::tree() const { return predicate::dumpOf(parsed_->tree); }

} // namespace qv
