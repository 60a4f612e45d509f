#include "rules/functions/QVRuleCheckerIOKitFunction.h"

#include "ioregistry/QVServiceQuery.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/system/ClassRegistry.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace qv {

namespace {

using Criteria = std::vector<std::pair<Value, Value>>;

// An argument without a value, "meetStrifalias=", stands for the empty text.
std::string_view textOf(const Value& argument) {
    return argument.is(Value::Kind::string) ? argument.asString() : std::string_view();
}

Value numberOf(const Value& argument) {
    const Value text = Value::string(textOf(argument));
    return Value::integer(longLongValue(&text));
}

struct SearchCriteria {
    Criteria matching;
    Criteria meeting;
};

SearchCriteria criteriaFrom(const DictionaryView& arguments) {
    struct Prefix {
        std::string_view text;
        Criteria SearchCriteria::* criteria;
        bool isNumber;
    };
    static constexpr std::array<Prefix, 4> kPrefixes{
        {{"matchStr", &SearchCriteria::matching, false},
         {"matchInt", &SearchCriteria::matching, true},
         {"meetStr", &SearchCriteria::meeting, false},
         {"meetInt", &SearchCriteria::meeting, true}}};
    SearchCriteria criteria;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view key = arguments.key(i);
        const Value& value = arguments.value(i);
        const auto* prefix = std::ranges::find_if(
            kPrefixes, [&](const Prefix& each) { return key.starts_with(each.text); });
        if (prefix != kPrefixes.end()) {
            (criteria.*prefix->criteria)
                .emplace_back(Value::string(key.substr(prefix->text.size())),
                              prefix->isNumber ? numberOf(value) : Value::string(textOf(value)));
        }
    }
    return criteria;
}

// Whether a look-up, by name, gives an equal value for every criterion.
template <typename LookUp> bool areMet(const DictionaryView& criteria, const LookUp& lookUp) {
    for (std::size_t i = 0; i < criteria.size(); ++i) {
        const std::optional<Value> value = lookUp(criteria.key(i));
        if (!value || !(*value == criteria.value(i))) {
            return false;
        }
    }
    return true;
}

bool meetsAll(const QVIOService& service, const DictionaryView& meeting) {
    // All properties decide. Most services fail by the few that are asked for, which takes a
    // fraction of the time.
    if (!areMet(meeting, [&](std::string_view key) { return service.valueForProperty(key); })) {
        return false;
    }
    const std::optional<Value> properties = service.properties();
    return properties && areMet(meeting, [&](std::string_view key) {
               const Value* value = properties->find(key);
               return value == nullptr ? std::nullopt : std::optional(*value);
           });
}

} // namespace

QVRuleCheckerIOKitFunction::QVRuleCheckerIOKitFunction()
    : QVRuleCheckerFunction("iokit", std::nullopt, nullptr) {}

std::optional<Value> QVRuleCheckerIOKitFunction::resultFor(const std::optional<Value>& parameter,
                                                           bool /*returnString*/) {
    if (!parameter) {
        return std::nullopt;
    }
    const Value* question = parameter->find("do");
    if (question == nullptr) {
        return std::nullopt;
    }
    const bool exists = textOf(*question) == "exists";
    const Value* name = parameter->find("propertyName");
    if (!exists && (textOf(*question) != "propertyValue" || name == nullptr)) {
        return std::nullopt;
    }
    SearchCriteria criteria = criteriaFrom(parameter->asDictionary());
    const auto service = firstServiceMatching(Value::dictionary(std::move(criteria.matching)),
                                              Value::dictionary(std::move(criteria.meeting)));
    if (exists) {
        return Value::boolean(service != nullptr);
    }
    return service ? service->valueForProperty(textOf(*name)) : std::nullopt;
}

std::shared_ptr<QVIOService>
QVRuleCheckerIOKitFunction::firstServiceMatching(const Value& matching, const Value& andMeeting) {
    const auto services = QVServiceQuery::servicesMatchingDictionary(matching, nullptr);
    if (!services) {
        return nullptr;
    }
    const bool meetsAny =
        !andMeeting.is(Value::Kind::dictionary) || andMeeting.asDictionary().empty();
    const auto found = std::ranges::find_if(*services, [&](const auto& service) {
        return meetsAny || meetsAll(*service, andMeeting.asDictionary());
    });
    return found == services->end() ? nullptr : *found;
}

QV_REGISTER_CLASS(QVRuleCheckerIOKitFunction, QVRuleCheckerFunction,
                  QV_METHOD(resultFor, "resultFor:returnString:"),
                  QV_METHOD_AS(
                      "firstServiceMatching:andMeeting:",
                      requires(const Value& value) { Self::firstServiceMatching(value, value); }));

} // namespace qv
