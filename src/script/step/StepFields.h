#pragma once

#include "platform/foundation/values/Conversions.h"
#include "script/step/Field.h"

#include <array>

namespace qv {

/// The fields of one step record, looked at in place. Lives as long as the record.
class StepFields {
public:
    /// The value under a key; null pointer when it is missing.
    [[nodiscard]] const Value* operator[](StepKey key) const noexcept {
        return fields_[static_cast<std::size_t>(key)];
    }
    /// The value of a field as the operation takes it: an optional URL or value, or a number of
    /// the kind's width. Throws an Exception for a number of another class.
    template <FieldKind kind> [[nodiscard]] auto get(StepKey key) const {
        using enum FieldKind;
        if constexpr (kind == item) {
            return skipped_ ? std::nullopt : urlFromString((*this)[key]);
        } else if constexpr (kind == flag) {
            return boolValue(number(key));
        } else if constexpr (kind == adminFlag) {
            return (bits(key) & 0xFFU) != 0;
        } else if constexpr (kind == mode) {
            return static_cast<std::uint16_t>(bits(key) & 0xFFFFU);
        } else if constexpr (kind == userID || kind == groupID || kind == progressField) {
            return bits(key);
        } else if constexpr (kind == processID || kind == errorBehaviour) {
            return intValue(number(key));
        } else {
            const Value* value = (*this)[key];
            return value == nullptr ? std::nullopt : std::optional<Value>(*value);
        }
    }
    /// The code of the operation. Throws an Exception as above.
    [[nodiscard]] std::uint64_t operation() const {
        return static_cast<std::uint64_t>(integerValue(number(StepKey::operation)));
    }
    /// The step lies in a branch that is not taken: its URLs are of no use, and parsing them would
    /// take most of the time.
    void skip() noexcept { skipped_ = true; }

private:
    friend class StepReader;
    [[nodiscard]] const Value* number(StepKey key) const {
        const Value* value = (*this)[key];
        if (value != nullptr && !value->isNumber() && !value->is(Value::Kind::string)) {
            refuseField(key, "a number", value);
        }
        return value;
    }
    [[nodiscard]] std::uint32_t bits(StepKey key) const {
        return static_cast<std::uint32_t>(intValue(number(key)));
    }

    std::array<const Value*, kStepKeyCount> fields_{};
    bool skipped_ = false;
};

/// Reads step records. Remembers where a list of keys holds the fields, so that a record with the
/// same keys as an earlier one costs no search.
class StepReader {
public:
    /// Throws an Exception for a step that is not a dictionary and for a URL that is not a string.
    [[nodiscard]] StepFields read(const Value& step);

private:
    struct Layout {
        KeyList keys; // held, so that its identity stays its own
        std::array<std::int32_t, kStepKeyCount> index{};
        bool filled = false;
    };
    const Layout& layoutOf(const KeyList& keys);
    std::array<Layout, 16> layouts_;
};

} // namespace qv
