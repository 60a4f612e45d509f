#include "platform/predicate/evaluation/Budget.h"

#include "platform/predicate/language/Reasons.h"

namespace qv::predicate {

void Budget::charge(const Value& value) {
    switch (value.kind()) {
    case Value::Kind::string:
        charge(value.asString());
        break;
    case Value::Kind::data:
        charge(value.asData());
        break;
    case Value::Kind::array:
    case Value::Kind::set:
    case Value::Kind::dictionary:
        requireTime(); // the first level does not tell how much is below
        break;
    default:
        charge(1);
    }
}

void Budget::make(std::size_t elements) {
    if (elements > makeable_) {
        raiseInvalidArgument("The evaluation makes too many values");
    }
    makeable_ -= elements;
    charge(elements);
}

Value Budget::made(Value value) {
    switch (value.kind()) {
    case Value::Kind::string:
        make(value.asString().size() / sizeof(Value));
        break;
    case Value::Kind::array:
    case Value::Kind::set:
        make(value.asArray().size());
        break;
    default:
        break;
    }
    return value;
}

bool Budget::isOver() const {
    return std::chrono::steady_clock::now() - begin_ >= std::chrono::seconds(1);
}

void Budget::requireTime() {
    unlooked_ = kStepsBetweenLooks;
    if (isOver()) {
        raiseInvalidArgument("The evaluation takes longer than a second");
    }
}

} // namespace qv::predicate
