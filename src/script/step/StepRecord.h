#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"
#include "platform/foundation/values/Value.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace qv {

/// The keys of a step record. "operation" is an integer; the URLs are absolute URL strings; the
/// arguments are any property-list value.
enum class StepKey : std::uint8_t { fromURL, toURL, URL, arg1, arg2, arg3, arg4, arg5, operation };
inline constexpr std::size_t kStepKeyCount = 9;
[[nodiscard]] std::string_view stepKeyName(StepKey key) noexcept;
[[nodiscard]] constexpr bool isURLKey(StepKey key) noexcept { return key <= StepKey::URL; }

/// The fault of a field that is missing (a null pointer) or holds something else than `wanted`
/// ("a string").
[[noreturn]] void refuseField(StepKey key, std::string_view wanted, const Value* found);

/// nil for no text, else what the text says; none for a text that is no URL.
[[nodiscard]] std::optional<URL> urlFromString(const Value* text);

/// Code 4 of NSCocoaErrorDomain for a field whose URL is missing (a null pointer), or whose text is
/// not a URL; empty for a URL.
[[nodiscard]] Error urlError(StepKey key, const Value* text);

/// The other way: the URL's absolute string; none for none.
[[nodiscard]] std::optional<Value> stringFromURL(const std::optional<URL>& url);

/// The fields of one step record, looked at in place. Lives as long as the record.
class StepFields {
public:
    /// The value under a key; null pointer when it is missing.
    [[nodiscard]] const Value* operator[](StepKey key) const noexcept {
        return fields_[static_cast<std::size_t>(key)];
    }
    /// The value as an optional object ("O" in the table of operations).
    [[nodiscard]] std::optional<Value> object(StepKey key) const;
    [[nodiscard]] std::optional<qv::URL> url(StepKey key) const {
        return skipped_ ? std::nullopt : urlFromString((*this)[key]);
    }
    /// The value of a number field; null pointer when it is missing. Throws an Exception for what
    /// is neither a number nor text.
    [[nodiscard]] const Value* number(StepKey key) const;
    /// The step lies in a branch that is not taken: its URLs are of no use, and parsing them would
    /// take most of the time.
    void skip() noexcept { skipped_ = true; }

private:
    friend class StepReader;
    std::array<const Value*, kStepKeyCount> fields_{};
    bool skipped_ = false;
};

/// Reads step records. Remembers where a list of keys holds the fields, so that a record with the
/// same keys as an earlier one costs no search.
class StepReader {
public:
    /// Throws an Exception for a step that is no dictionary and for a URL that is no string.
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
