#include "script/review/AuthoredForm.h"
#include "script/review/WrittenField.h"
#include "script/review/WrittenOperation.h"

#include <fmt/format.h>

namespace qv {

namespace {

using SchemaPairs = std::vector<std::pair<Value, Value>>;

Value schemaText(std::string_view text) { return Value::string(text); }

Value fieldSchema(const Field& field, const WrittenKind& kind) {
    const Value schema = kind.schema();
    const DictionaryView known = schema.asDictionary();
    SchemaPairs pairs;
    for (std::size_t i = 0; i < known.size(); ++i) {
        if (known.key(i) != "description") {
            pairs.emplace_back(schemaText(known.key(i)), known.value(i));
        }
    }
    const Value* detail = schema.find("description");
    pairs.emplace_back(schemaText("description"),
                       schemaText(detail == nullptr
                                      ? std::string(field.name)
                                      : fmt::format("{}: {}", field.name, detail->asString())));
    return Value::dictionary(std::move(pairs));
}

// A step that names its operation.
Value operationSchema(const WrittenOperation& operation) {
    SchemaPairs properties = {
        {schemaText("operation"), Value::dictionary({{"const", schemaText(operation.row->name)}})}};
    std::vector<Value> required = {schemaText("operation")};
    for (std::size_t i = 0; i < operation.keys.size(); ++i) {
        const Field& field = operation.row->fields[i];
        const WrittenKind& kind = writtenKind(field.kind);
        properties.emplace_back(schemaText(operation.keys[i]), fieldSchema(field, kind));
        if (!kind.isOptional) {
            required.push_back(schemaText(operation.keys[i]));
        }
    }
    return Value::dictionary({{"title", schemaText(operation.row->name)},
                              {"description", schemaText(operation.row->text)},
                              {"type", schemaText("object")},
                              {"properties", Value::dictionary(std::move(properties))},
                              {"required", Value::array(std::move(required))},
                              {"additionalProperties", Value::boolean(false)}});
}

Value schemaReference(std::string_view name) {
    return Value::dictionary({{"$ref", schemaText(fmt::format("#/$defs/{}", name))}});
}

// The schema is chosen by the operation, so that a validator names the fault of the step and not of
// every alternative.
Value stepSchema() {
    std::vector<Value> names;
    std::vector<Value> cases;
    for (const Operation& row : allOperations()) {
        names.push_back(schemaText(row.name));
        const Value isNamed = Value::dictionary({{"const", schemaText(row.name)}});
        cases.push_back(Value::dictionary(
            {{"if", Value::dictionary({{"properties", Value::dictionary({{"operation", isNamed}})},
                                       {"required", Value::array({schemaText("operation")})}})},
             {"then", schemaReference(row.name)}}));
    }
    const Value isExact = Value::dictionary({{"type", schemaText("integer")}});
    const Value digits =
        Value::dictionary({{"type", schemaText("string")}, {"pattern", schemaText("^-?[0-9]+$")}});
    const Value operation = Value::dictionary(
        {{"description", schemaText("the name of the operation, or the code of an exact step")},
         {"anyOf", Value::array({Value::dictionary({{"enum", Value::array(std::move(names))}}),
                                 isExact, digits})}});
    return Value::dictionary({{"type", schemaText("object")},
                              {"properties", Value::dictionary({{"operation", operation}})},
                              {"required", Value::array({schemaText("operation")})},
                              {"allOf", Value::array(std::move(cases))}});
}

} // namespace

Value authoredSchema() {
    SchemaPairs definitions = {
        {schemaText("step"), stepSchema()},
        {schemaText("steps"),
         Value::dictionary({{"type", schemaText("array")}, {"items", schemaReference("step")}})}};
    for (const Operation& row : allOperations()) {
        definitions.emplace_back(schemaText(row.name),
                                 operationSchema(*writtenOperation(row.name)));
    }
    const Value properties =
        Value::dictionary({{"$schema", Value::dictionary({{"type", schemaText("string")}})},
                           {"steps", schemaReference("steps")}});
    const Value object = Value::dictionary({{"type", schemaText("object")},
                                            {"properties", properties},
                                            {"required", Value::array({schemaText("steps")})},
                                            {"additionalProperties", Value::boolean(false)}});
    return Value::dictionary(
        {{"$schema", schemaText("https://json-schema.org/draft/2020-12/schema")},
         {"title", schemaText("A script of installation steps")},
         {"if", Value::dictionary({{"type", schemaText("array")}})},
         {"then", schemaReference("steps")},
         {"else", object},
         {"$defs", Value::dictionary(std::move(definitions))}});
}

} // namespace qv
