#include "script/step/StepFields.h"

#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

namespace qv {

const StepReader::Layout& StepReader::layoutOf(const KeyList& keys) {
    const auto identity = reinterpret_cast<std::uintptr_t>(keys.identity());
    Layout& layout = layouts_[(identity >> 4U) % layouts_.size()];
    if (!layout.filled || !layout.keys.sameAs(keys)) {
        layout.keys = keys;
        layout.filled = true;
        for (std::size_t i = 0; i < kStepKeyCount; ++i) {
            const auto place = keys.indexOf(stepKeyName(static_cast<StepKey>(i)));
            layout.index[i] = place ? static_cast<std::int32_t>(*place) : -1;
        }
    }
    return layout;
}

StepFields StepReader::read(const Value& step) {
    if (!step.is(Value::Kind::dictionary)) {
        throw Exception(std::string(exception_name::kInvalidArgument),
                        fmt::format("a step must be a dictionary, not {}", kindText(step.kind())));
    }
    const DictionaryView pairs = step.asDictionary();
    const Layout& layout = layoutOf(pairs.keys());
    StepFields fields;
    for (std::size_t i = 0; i < kStepKeyCount; ++i) {
        if (layout.index[i] >= 0) {
            fields.fields_[i] = &pairs.value(static_cast<std::size_t>(layout.index[i]));
        }
    }
    for (const StepKey key : {StepKey::fromURL, StepKey::toURL, StepKey::URL}) {
        const Value* text = fields[key];
        if (text != nullptr && !text->is(Value::Kind::string)) {
            refuseField(key, infoOf(FieldKind::item).wanted, text);
        }
    }
    return fields;
}

} // namespace qv
