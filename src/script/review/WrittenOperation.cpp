#include "script/review/WrittenOperation.h"

#include <algorithm>

namespace qv {

const WrittenOperation* writtenOperation(std::string_view name) {
    static const std::vector<WrittenOperation> all = [] {
        std::vector<WrittenOperation> written;
        for (const Operation& row : allOperations()) {
            written.push_back({&row, {}});
            for (const Field& field : row.fields) {
                written.back().keys.push_back(field.writtenKey());
            }
        }
        return written;
    }();
    const Operation* row = operationNamed(name);
    return row == nullptr ? nullptr : &all[static_cast<std::size_t>(row->code)];
}

bool isExactKey(std::string_view key) noexcept {
    for (std::size_t i = 0; i < kStepKeyCount; ++i) {
        if (stepKeyName(static_cast<StepKey>(i)) == key) {
            return true;
        }
    }
    return false;
}

const KeyList& StepKeyLists::of(const WrittenOperation& operation, std::uint32_t present) {
    const auto [entry, isNew] = lists_.try_emplace({operation.row->code, present});
    if (isNew) {
        std::vector<Value> keys = {Value::string(stepKeyName(StepKey::operation))};
        for (std::size_t i = 0; i < operation.keys.size(); ++i) {
            if ((present & (1U << i)) != 0) {
                keys.push_back(Value::string(form_ == Form::written
                                                 ? std::string_view(operation.keys[i])
                                                 : stepKeyName(operation.row->fields[i].key)));
            }
        }
        entry->second = KeyList(keys);
    }
    return entry->second;
}

} // namespace qv
