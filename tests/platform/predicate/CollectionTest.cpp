#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/predicate/Outcome.h"

namespace qv::test {
namespace {

Value person(std::string_view name, const Value& age, std::vector<Value> tags) {
    return Value::dictionary(
        {{"name", Value::string(name)}, {"age", age}, {"tags", Value::array(std::move(tags))}});
}

Value object() {
    const Value a = Value::string("a");
    const Value b = Value::string("b");
    return Value::dictionary({
        {"people",
         Value::array({person("Ann", Value::integer(30), {a}),
                       person("Ben", Value::integer(20), {a, b}), person("Cid", Value(), {})})},
        {"set", Value::set({Value::integer(1), Value::integer(2)})},
        {"empty", Value::array({})},
        {"map", Value::dictionary({{"k", Value::integer(5)}, {"count", Value::string("own")}})},
        {"text", Value::string("é😀")},
        {"data", Value::data("12345")},
        {"date", Value::date({7.5})},
        {"url", Value::url(URL::fileURLWithPath("/usr/bin/"))},
        {"error", Value::error(Error::posix(2))},
        {"sets", Value::array({Value::set({Value::integer(1)}), Value::set({Value::integer(1)})})},
    });
}

TEST(PredicateCollection, TestsMembersAndQualifiers) {
    expectOutcomes(
        {
            {"1 IN {1, 2} AND 1.0 IN set AND YES IN {1} AND 5 IN map AND {1} IN {{1}, 2}", "yes"},
            {"3 IN {1, 2} OR '1' IN {1} OR 'k' IN map OR 1 IN {}", "no"},
            {"set CONTAINS 2 AND map CONTAINS 'own' AND {'a'} CONTAINS 'a'", "yes"},
            {"ANY {1, 5} > 4 AND SOME set == 2 AND ALL {1, 2} < 3 AND NONE {1, 2} > 2", "yes"},
            {"ANY {} == 1 OR ALL {1, 5} > 4 OR NONE {1, 2} > 1", "no"},
            {"ALL empty == 1 AND NONE empty == 1 AND ALL {} < 'a'", "yes"},
            {"ANY {1, 9} BETWEEN {8, 10} AND ANY {1, 2} IN {2} AND ALL {'ab', 'ac'} LIKE 'a?'",
             "yes"},
            {"ANY {{1}, {2}} CONTAINS 2 AND ANY people.name BEGINSWITH 'B'", "yes"},
            {"ANY people.age < 25", "yes"},
            {"ALL people.age > 10", "no"}, // one has none
            {"{1, {2, 'x'}} == {1.0, {TRUE + 1, 'x'}} AND {1, 2} != {2, 1}", "yes"},
        },
        object());
}

TEST(PredicateCollection, TakesElements) {
    expectOutcomes(
        {
            {"{1, 2}[0] == 1 AND {1, 2}[1] == 2 AND people[1].name == 'Ben'", "yes"},
            {"{1, 2}[FIRST] == 1 AND {1, 2}[LAST] == 2 AND {1, 2}[SIZE] == 2", "yes"},
            {"empty[FIRST] == NULL AND empty[LAST] == NULL AND empty[SIZE] == 0", "yes"},
            {"set[FIRST] IN set AND set[SIZE] == 2 AND map[SIZE] == 2", "yes"},
            {"map['k'] == 5 AND map['nosuch'] == NULL AND map[1] == NULL", "yes"},
            {"nosuch[0] == NULL AND nosuch[SIZE] == NULL AND nosuch[LAST] == NULL", "yes"},
            {"people[{0, 1}[LAST]].age == 20", "yes"},
            {"empty[0] == 1", "NSRangeException: There is no element 0 in an array of 0"},
            {"{1}[-1] == 1", "There is no element -1 in an array of 1"},
            {"{1}['0'] == 1", "raises"},
            {"{1}[0.0] == 1", "raises"},
            {"set[0] == 1", "raises"},
            {"text[0] == 1", "raises"},
            {"text[SIZE] == 1", "raises"},
            {"map[FIRST] == 1", "raises"},
        },
        object());
}

TEST(PredicateCollection, LooksUpPaths) {
    expectOutcomes(
        {
            {"map.k == 5 AND map.nosuch == NULL AND map.nosuch.deeper == NULL", "yes"},
            {"map.count == 'own' AND map.@count == 2", "yes"},
            {"'k' IN map.@allKeys AND 5 IN map.@allValues", "yes"},
            {"people.name == {'Ann', 'Ben', 'Cid'} AND people.age == {30, 20, NULL}", "yes"},
            {"people.@count == 3 AND set.@count == 2 AND empty.@count == 0", "yes"},
            {"people.tags.@count == 3 AND people.name.length == {3, 3, 3}", "yes"},
            {"people.@sum.age == 50 AND people.@avg.age == 25", "yes"},
            {"people.@min.age == 20 AND people.@max.name == 'Cid'", "yes"},
            {"empty.@sum.age == 0 AND empty.@avg.age == 0 AND empty.@max.age == NULL", "yes"},
            {"people.@unionOfObjects.age == {30, 20, NULL} AND people.@unionOfObjects.nosuch == {}",
             "yes"},
            {"people.@unionOfArrays.tags == {'a', 'a', 'b'}", "yes"},
            {"people.@distinctUnionOfArrays.tags == {'a', 'b'}", "yes"},
            {"{1, 2, 1.0}.@distinctUnionOfObjects.#self == {1, 2}", "yes"},
            {"(sets.@distinctUnionOfSets.#self).@count == 1", "yes"},
            {"SUBQUERY(people, $p, $p.age > 25 AND ANY $p.tags == 'a').name == {'Ann'}", "yes"},
            {"text.length == 3 AND text.uppercaseString.lowercaseString == text", "yes"},
            {"data.length == 5 AND date.timeIntervalSinceReferenceDate == 7.5", "yes"},
            {"url.path == '/usr/bin' AND url.absoluteString == 'file:///usr/bin/'", "yes"},
            {"error.code == 2 AND error.domain == 'NSPOSIXErrorDomain'", "yes"},
            {"'12abc'.intValue == 12 AND (12).stringValue == '12'", "yes"},
            {"text.nosuch == 1",
             "NSUnknownKeyException: a string (é😀) has nothing under the key nosuch"},
            {"people.@nosuch.age == 1", "the key @nosuch"},
            {"people.@sum == 1", "the key @sum"},
            {"people.@sum.name == 1", "raises"},
            {"people.@unionOfArrays.name == 1", "raises"},
            {"@count == 10 AND SELF.map.k == 5", "yes"},
        },
        object());
}

TEST(PredicateCollection, TakesAnyValueAsTheObject) {
    expectOutcomes(
        {{"SELF == 5 AND #self.intValue == 5 AND SELF IN {5} AND description == '5'", "yes"},
         {"nosuch == 5", "a number (5) has nothing under the key nosuch"}},
        Value::integer(5));
    expectOutcomes({{"SELF[SIZE] == 0 AND @count == 0 AND ALL SELF == 1", "yes"}},
                   Value::array({}));
    expectOutcomes({{"SELF == NULL AND a.b == NULL", "yes"}}, {});
}

} // namespace
} // namespace qv::test
