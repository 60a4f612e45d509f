#pragma once

#include "platform/applescript/running/TextElements.h"

namespace qv::applescript {

/// Parts of values: properties and elements, by the steps of specifiers.
class Parts {
public:
    explicit Parts(const Context& context) : context_(context), elements_(context) {}

    /// `step` of a value that is not an object of an application; -1728. The script's own
    /// properties are not known here.
    [[nodiscard]] ScriptValue get(const ScriptValue& container, const Specifier::Step& step);
    /// Changes a list, record or date; -10006 for what cannot be changed.
    void set(const ScriptValue& container, const Specifier::Step& step, const ScriptValue& value);
    /// The number of items of a list, a record or a text; none of anything else.
    [[nodiscard]] std::optional<std::size_t> countOf(const ScriptValue& value);

    [[nodiscard]] TextElements& texts() noexcept { return elements_; }

private:
    using Step = Specifier::Step;
    using Form = Specifier::Form;

    ScriptValue property(const ScriptValue& container, const Step& step);
    ScriptValue element(const ScriptValue& container, const Step& step);
    ScriptValue range(const ScriptValue& container, const Step& step,
                      const std::vector<std::size_t>& places, std::size_t count);
    ScriptValue textRange(const ScriptValue& text, const Step& step);
    std::optional<TextSpan> bound(const ScriptValue& text, const ScriptValue& key);
    ScriptValue at(const ScriptValue& container, Term type, std::size_t place);
    std::optional<std::size_t> placeOf(const Step& step, std::size_t count);
    void setProperty(const ScriptValue& container, const Step& step, const ScriptValue& value);

    const Context& context_;
    TextElements elements_;
};

/// The place, from 0, of an index that counts from 1 or, if it is negative, from the end; none
/// outside.
[[nodiscard]] std::optional<std::size_t> placeAt(std::int64_t index, std::size_t count) noexcept;
/// A random number from 0 up to below `count`.
[[nodiscard]] std::uint64_t randomBelow(std::uint64_t count);

} // namespace qv::applescript
