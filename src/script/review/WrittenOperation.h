#pragma once

#include "script/step/OperationTable.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

/// A row of the table of operations with the keys of its fields as people write them.
struct WrittenOperation {
    const Operation* row;
    std::vector<std::string> keys; ///< one for each field, in their order
};

/// The operation with the name of the row; a null pointer for any other text.
[[nodiscard]] const WrittenOperation* writtenOperation(std::string_view name);

/// Whether exact steps have this key.
[[nodiscard]] bool isExactKey(std::string_view key) noexcept;

/// The lists of keys of steps, each made once and shared by all steps that have it.
class StepKeyLists {
public:
    enum class Form : std::uint8_t { exact, written };
    explicit StepKeyLists(Form form) noexcept : form_(form) {}
    /// The keys: "operation", and those of those fields whose bit is set in `present`.
    [[nodiscard]] const KeyList& of(const WrittenOperation& operation, std::uint32_t present);

private:
    Form form_;
    std::map<std::pair<OperationCode, std::uint32_t>, KeyList> lists_;
};

} // namespace qv
