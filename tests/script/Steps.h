#pragma once

#include "platform/foundation/values/Value.h"
#include "script/QVCatalogScript.h"

#include <string>
#include <utility>
#include <vector>

namespace qv::test {

using Fields = std::initializer_list<std::pair<std::string_view, Value>>;

inline Value number(std::int64_t value) { return Value::integer(value); }
inline Value text(std::string_view value) { return Value::string(value); }

inline Value strings(std::initializer_list<std::string_view> list) {
    std::vector<Value> elements;
    for (const std::string_view element : list) {
        elements.push_back(Value::string(element));
    }
    return Value::array(std::move(elements));
}

/// A step that runs a program.
inline Value toolStep(std::string_view tool, std::initializer_list<std::string_view> arguments) {
    return Value::dictionary({{"operation", number(8)},
                              {"arg1", text(tool)},
                              {"arg2", strings(arguments)},
                              {"arg3", Value::array({number(0)})}});
}

inline Value fileURL(const std::string& path) { return text("file://" + path); }

/// The result of a privileged replay of the steps.
struct Replayed {
    bool success = false;
    Error error;
    const Value* failedStep = nullptr;
};

inline Replayed replay(QVCatalogScript& script, const Value& steps) {
    script.setIsPriviledged(true);
    Replayed result;
    result.success = script.executeRecording(steps, &result.error, &result.failedStep);
    return result;
}

inline Replayed replay(const Value& steps) {
    QVCatalogScript script;
    return replay(script, steps);
}

} // namespace qv::test
