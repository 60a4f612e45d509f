#include "platform/applescript/running/Parts.h"

#include "platform/applescript/running/Coercions.h"
#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/Properties.h"

#include <algorithm>
#include <random>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

ScriptValue partOfText(const ScriptValue& text, TextSpan span) {
    return ScriptValue::text(text.asText().substr(span.begin, span.end - span.begin));
}

/// The places of the items of a list that belong to a class; empty, and all do, for `item`.
std::vector<std::size_t> placesOf(const ScriptValue& container, Term type) {
    std::vector<std::size_t> places;
    if (container.is(Kind::list) && type != Term::item) {
        constexpr std::size_t kBytesOfAPlace = 3 * sizeof(std::size_t); // as the list grows
        const std::vector<ScriptValue>& items = container.asList();
        ScriptValue::expectBytes(items.size() * kBytesOfAPlace);
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (isOfClass(items[i], type)) {
                places.push_back(i);
            }
        }
    }
    return places;
}

} // namespace

std::optional<std::size_t> placeAt(std::int64_t index, std::size_t count) noexcept {
    const auto size = static_cast<std::int64_t>(count);
    const std::int64_t place = index > 0 ? index - 1 : size + index;
    return index != 0 && place >= 0 && place < size ? std::optional(static_cast<std::size_t>(place))
                                                    : std::nullopt;
}

std::uint64_t randomBelow(std::uint64_t count) {
    static thread_local std::mt19937_64 source{std::random_device{}()};
    return std::uniform_int_distribution<std::uint64_t>(0, count - 1)(source);
}

std::optional<std::size_t> Parts::countOf(const ScriptValue& value) {
    switch (value.kind()) {
    case Kind::list:
        return value.asList().size();
    case Kind::record:
        return value.asRecord().size();
    case Kind::text:
        return elements_.count(value, Term::character);
    default:
        return std::nullopt;
    }
}

ScriptValue Parts::get(const ScriptValue& container, const Step& step) {
    return step.form == Form::property ? property(container, step) : element(container, step);
}

ScriptValue Parts::property(const ScriptValue& container, const Step& step) {
    const std::string_view name =
        step.term != Term::none ? wordsOf(step.term) : std::string_view(step.key.asText());
    if (container.is(Kind::record)) {
        if (const ScriptValue* field = fieldOf(container, name)) {
            return *field;
        }
    }
    if (step.term == Term::length) {
        if (const auto count = countOf(container)) {
            return wholeNumber(static_cast<std::int64_t>(*count));
        }
    }
    std::optional<ScriptValue> value = propertyOf(container, step.term, context_);
    if (!value) {
        failToGet(container, step, context_);
    }
    return std::move(*value);
}

ScriptValue Parts::at(const ScriptValue& container, Term type, std::size_t place) {
    return container.is(Kind::list) ? container.asList()[place]
                                    : partOfText(container, elements_.at(container, type, place));
}

std::optional<std::size_t> Parts::placeOf(const Step& step, std::size_t count) {
    switch (step.form) {
    case Form::index:
        return step.key.is(Kind::text) ? std::nullopt
                                       : placeAt(integerOf(step.key, context_), count);
    case Form::some:
        return count != 0 ? std::optional(randomBelow(count)) : std::nullopt;
    case Form::middle:
        return count != 0 ? std::optional((count - 1) / 2) : std::nullopt;
    default:
        return std::nullopt;
    }
}

ScriptValue Parts::element(const ScriptValue& container, const Step& step) {
    const bool isText = container.is(Kind::text) && TextElements::has(step.term);
    if (!isText && !container.is(Kind::list)) {
        failToGet(container, step, context_);
    }
    if (isText && step.term == Term::text) {
        return step.form == Form::every ? container : textRange(container, step);
    }
    const std::vector<std::size_t> places = placesOf(container, step.term);
    const bool isChosen = container.is(Kind::list) && step.term != Term::item;
    const std::size_t count = isText     ? elements_.count(container, step.term)
                              : isChosen ? places.size()
                                         : container.asList().size();
    if (step.form == Form::every || step.form == Form::range) {
        return range(container, step, places, count);
    }
    const auto place = placeOf(step, count);
    if (!place) {
        failToGet(container, step, context_);
    }
    return at(container, step.term, isChosen ? places[*place] : *place);
}

ScriptValue Parts::range(const ScriptValue& container, const Step& step,
                         const std::vector<std::size_t>& places, std::size_t count) {
    constexpr std::size_t kBytesOfAnItem = 96; // a short text of its own
    std::size_t first = 0;
    std::size_t end = count;
    if (step.form == Form::range) {
        const auto begin = placeAt(integerOf(step.key, context_), count);
        const auto last = placeAt(integerOf(step.last, context_), count);
        if (!begin || !last) {
            failToGet(container, step, context_);
        }
        first = std::min(*begin, *last);
        end = std::max(*begin, *last) + 1;
    }
    const bool isText = container.is(Kind::text);
    ScriptValue::expectBytes((end - first) * (isText ? kBytesOfAnItem : sizeof(ScriptValue)));
    std::vector<ScriptValue> items;
    items.reserve(end - first);
    const bool isChosen = !isText && step.term != Term::item;
    for (std::size_t i = first; i < end; ++i) {
        items.push_back(at(container, step.term, isChosen ? places[i] : i));
    }
    return ScriptValue::list(std::move(items));
}

// A bound is an index of characters or an element of another kind: `from word 2 to word 3`.
std::optional<TextSpan> Parts::bound(const ScriptValue& text, const ScriptValue& key) {
    const bool isElement = key.is(Kind::specifier);
    const Term type = isElement ? key.asSpecifier().steps.back().term : Term::character;
    const Step step =
        isElement ? key.asSpecifier().steps.back() : Step{.form = Form::index, .key = key};
    if (!TextElements::has(type)) {
        return std::nullopt;
    }
    const auto place = placeOf(step, elements_.count(text, type));
    return place ? std::optional(elements_.at(text, type, *place)) : std::nullopt;
}

ScriptValue Parts::textRange(const ScriptValue& text, const Step& step) {
    const bool isRange = step.form == Form::range;
    const auto first = isRange || step.form == Form::index ? bound(text, step.key) : std::nullopt;
    const auto last = isRange ? bound(text, step.last) : first;
    if (!first || !last) {
        failToGet(text, step, context_);
    }
    return partOfText(text, {std::min(first->begin, last->begin), std::max(first->end, last->end)});
}

void Parts::setProperty(const ScriptValue& container, const Step& step, const ScriptValue& value) {
    if (container.is(Kind::list) && (step.term == Term::end || step.term == Term::beginning)) {
        std::vector<ScriptValue>& items = container.asList();
        container.expectItems(1);
        if (step.term == Term::beginning) {
            context_.bounds.bytes(items.size() * sizeof(ScriptValue));
        }
        items.insert(step.term == Term::end ? items.end() : items.begin(), value);
        container.countAgain();
        return;
    }
    if (container.is(Kind::record)) {
        const std::string_view name =
            step.term != Term::none ? wordsOf(step.term) : std::string_view(step.key.asText());
        if (ScriptValue* field = fieldOf(container, name)) {
            *field = value;
            return;
        }
    }
    if (!container.is(Kind::date) ||
        !setDateProperty(container.asDate(), step.term, value, context_)) {
        failToSet(container, step, value, context_);
    }
}

void Parts::set(const ScriptValue& container, const Step& step, const ScriptValue& value) {
    if (step.form == Form::property) {
        return setProperty(container, step, value);
    }
    if (!container.is(Kind::list)) {
        failToSet(container, step, value, context_);
    }
    std::vector<ScriptValue>& items = container.asList();
    const std::vector<std::size_t> places = placesOf(container, step.term);
    const bool isChosen = step.term != Term::item;
    const auto place = placeOf(step, isChosen ? places.size() : items.size());
    if (!place) {
        failToSet(container, step, value, context_);
    }
    items[isChosen ? places[*place] : *place] = value;
}

} // namespace qv::applescript
