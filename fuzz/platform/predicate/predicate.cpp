// Arbitrary text as a predicate: what it prints is read as the same tree and prints the same, and
// it is evaluated to an answer or an exception; or it is refused with a reason and a place inside
// of it.

#include "platform/predicate/Predicate.h"

#include <cstdlib>

namespace {

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

qv::Value someObject() {
    using qv::Value;
    const Value text = Value::string("10.15.7 \u00e9e\u0301\u00df\u0130\uff11");
    const Value list =
        Value::array({text, Value::integer(5), Value(), Value::real(2.5), Value::boolean(true)});
    return Value::dictionary({
        {"a", Value::integer(1)},
        {"b", text},
        {"c", list},
        {"d", Value::date({0})},
        {"e", Value::set({text, Value::integer(-1)})},
        {"f", Value::data("bytes")},
        {"x", Value::dictionary({{"a", list}, {"b", Value::unsignedInteger(UINT64_MAX)}})},
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const qv::Value kObject = someObject();
    const std::string text(data, data + size);
    try {
        const auto predicate = qv::Predicate::predicateWithFormat(text);
        const std::string format = predicate.predicateFormat();
        const auto again = qv::Predicate::predicateWithFormat(format);
        require(again.tree() == predicate.tree() && again.predicateFormat() == format);
        (void)predicate.evaluateWithObject(kObject, kObject);
    } catch (const qv::PredicateSyntaxError& error) {
        require(error.offset() <= size && !error.cause().empty());
    } catch (const qv::Exception& exception) {
        require(!exception.name().empty() && !exception.reason().empty());
    }
    return 0;
}
