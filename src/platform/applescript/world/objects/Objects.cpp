#include "platform/applescript/world/objects/Objects.h"

#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::applescript::world {

namespace {

using Form = Specifier::Form;
using Step = Specifier::Step;
using Kind = ScriptValue::Kind;

std::string describedStep(const Step& step) {
    const std::string_view words = wordsOf(step.term);
    switch (step.form) {
    case Form::property:
        return std::string(words);
    case Form::index:
        return fmt::format("{} {}", words, shown(step.key));
    case Form::name:
        return step.key.is(Kind::file) ? shown(step.key)
                                       : fmt::format("{} {}", words, shown(step.key));
    case Form::id:
        return fmt::format("{} id {}", words, shown(step.key));
    case Form::every:
        return fmt::format("every {}", words);
    case Form::some:
        return fmt::format("some {}", words);
    case Form::middle:
        return fmt::format("middle {}", words);
    case Form::range:
        return fmt::format("{}s {} thru {}", words, shown(step.key), shown(step.last));
    case Form::filter:
        return fmt::format("every {} whose …", words);
    }
    return {};
}

// Keys and conditions hold specifiers whose keys hold specifiers, as deep as a script makes them.
class ResolutionDepth {
public:
    ResolutionDepth() {
        constexpr int kDeepestKey = 100;
        if (now() >= kDeepestKey) {
            fail(error_number::kStackOverflow, "Stack overflow.");
        }
        ++now();
    }
    ResolutionDepth(const ResolutionDepth&) = delete;
    ResolutionDepth& operator=(const ResolutionDepth&) = delete;
    ResolutionDepth(ResolutionDepth&&) = delete;
    ResolutionDepth& operator=(ResolutionDepth&&) = delete;
    ~ResolutionDepth() { --now(); }

private:
    static int& now() noexcept {
        static thread_local int depth = 0;
        return depth;
    }
};

// The way along one specifier.
class Resolution {
public:
    Resolution(ObjectModel& model, const Specifier& specifier)
        : model_(model), specifier_(specifier) {}

    Answers run() {
        answers_.each = {WorldObject{}};
        for (const Step& step : specifier_.steps) {
            ++count_;
            if (step.form == Form::property) {
                takeProperty(step.term);
            } else {
                takeElements(step);
            }
        }
        return std::move(answers_);
    }

private:
    [[noreturn]] void failHere(std::int64_t number = error_number::kCannotGet) const {
        Specifier part = specifier_;
        part.application.clear();
        part.steps.resize(count_);
        ScriptError error{
            .number = number,
            .brief = fmt::format("Can’t get {}.{}", described(part),
                                 number == error_number::kInvalidIndex ? " Invalid index." : ""),
            .application = model_.applicationName()};
        part.application = specifier_.application;
        part.byIdentifier = specifier_.byIdentifier;
        error.offender = ScriptValue::specifier(std::move(part));
        throw error;
    }

    void takeProperty(Term term) {
        for (ObjectAnswer& each : answers_.each) {
            each = propertyOf(each, term);
        }
    }
    ObjectAnswer propertyOf(const ObjectAnswer& answer, Term term) {
        if (const auto* const object = std::get_if<WorldObject>(&answer)) {
            if (std::optional<ObjectAnswer> found = model_.property(*object, term)) {
                return std::move(*found);
            }
            failHere();
        }
        const auto& value = std::get<ScriptValue>(answer);
        if (value.is(Kind::file)) {
            return propertyOf(itemAt(value.asFilePath()), term);
        }
        const ScriptValue* const field = fieldOf(value, wordsOf(term));
        if (field == nullptr) {
            failHere();
        }
        return *field;
    }

    void takeElements(const Step& step) {
        // `item 2 of every process`, `process 2 of every process whose …` and `item 2 of name of
        // every process` are one of those.
        const bool isOneOfList =
            answers_.isList && step.form != Form::name && step.form != Form::id &&
            (step.term == Term::item ||
             (count_ > 1 && specifier_.steps[count_ - 2].form != Form::property &&
              specifier_.steps[count_ - 2].term == step.term));
        if (isOneOfList) {
            select(step, std::move(answers_.each));
            return;
        }
        Answers all{.isList = answers_.isList, .each = {}};
        for (const ObjectAnswer& each : std::exchange(answers_.each, {})) {
            const auto* const object = std::get_if<WorldObject>(&each);
            if (object == nullptr) {
                failHere();
            }
            answers_.isList = false;
            selectIn(*object, step);
            all.isList = all.isList || answers_.isList;
            std::ranges::move(answers_.each, std::back_inserter(all.each));
        }
        answers_ = std::move(all);
    }

    void selectIn(const WorldObject& object, const Step& step) {
        const bool isNamed = step.form == Form::name || step.form == Form::id ||
                             (step.form == Form::index && !step.key.isNumber());
        if (isNamed) {
            std::optional<WorldObject> found =
                model_.named(object, step.term, asPlainKey(step.key));
            if (!found) {
                failHere();
            }
            answers_.each = {std::move(*found)};
            return;
        }
        std::optional<std::vector<WorldObject>> elements = model_.elements(object, step.term);
        if (!elements && step.form == Form::every) { // `container of x`: a class that is a property
            answers_.each = {propertyOf(object, step.term)};
            return;
        }
        if (!elements) {
            failHere();
        }
        if (step.form == Form::filter && !step.filter.empty()) {
            std::erase_if(*elements, [&](const WorldObject& each) {
                return !holds(model_, step.filter.front(), each);
            });
        }
        select(step, {std::make_move_iterator(elements->begin()),
                      std::make_move_iterator(elements->end())});
    }

    // `folder (container of x)`: the key is an object itself.
    ScriptValue asPlainKey(const ScriptValue& key) {
        if (!key.is(Kind::specifier)) {
            return key;
        }
        const std::vector<WorldObject> objects = objectsIn(model_, key);
        if (objects.size() != 1 || objects.front().kind != WorldObject::Kind::item) {
            failHere();
        }
        return ScriptValue::file(objects.front().path, Term::alias);
    }

    void select(const Step& step, std::vector<ObjectAnswer> from) {
        const std::size_t count = from.size();
        answers_.isList = false;
        switch (step.form) {
        case Form::every:
        case Form::filter:
            answers_ = {true, std::move(from)};
            return;
        case Form::range: {
            const std::size_t first = placeOfIndex(step.key, count);
            const std::size_t last = placeOfIndex(step.last, count);
            const auto begin = from.begin() + static_cast<std::ptrdiff_t>(std::min(first, last));
            answers_ = {
                true,
                {begin, from.begin() + static_cast<std::ptrdiff_t>(std::max(first, last) + 1)}};
            return;
        }
        case Form::index:
            answers_.each = {from[placeOfIndex(step.key, count)]};
            return;
        default: // some, middle
            if (count == 0) {
                failHere();
            }
            answers_.each = {from[(count - 1) / 2]};
        }
    }

    std::size_t placeOfIndex(const ScriptValue& key, std::size_t count) const {
        const double wanted = key.isNumber() ? numberFrom(key) : 0;
        constexpr double kMost = 1e9;
        const auto number =
            wanted > -kMost && wanted < kMost ? static_cast<std::int64_t>(wanted) : 0;
        const auto size = static_cast<std::int64_t>(count);
        const std::int64_t place = number < 0 ? size + number : number - 1;
        if (number == 0 || place < 0 || place >= size) {
            failHere(error_number::kInvalidIndex);
        }
        return static_cast<std::size_t>(place);
    }

    ObjectModel& model_;
    const Specifier& specifier_;
    std::size_t count_ = 0;
    Answers answers_;
};

} // namespace

WorldObject itemAt(std::string_view path) {
    return {.kind = WorldObject::Kind::item, .path = std::string(withoutTrailingSlashes(path))};
}

Answers resolve(ObjectModel& model, const Specifier& specifier) {
    const ResolutionDepth depth;
    return Resolution(model, specifier).run();
}

ScriptValue valueOf(ObjectModel& model, const ObjectAnswer& answer) {
    const auto* const object = std::get_if<WorldObject>(&answer);
    return object != nullptr ? model.reference(*object) : std::get<ScriptValue>(answer);
}

ScriptValue valueOf(ObjectModel& model, const Answers& answers) {
    if (!answers.isList) {
        return valueOf(model, answers.each.front());
    }
    std::vector<ScriptValue> values;
    std::ranges::transform(answers.each, std::back_inserter(values),
                           [&](const ObjectAnswer& each) { return valueOf(model, each); });
    return ScriptValue::list(std::move(values));
}

std::vector<WorldObject> objectsIn(ObjectModel& model, const ScriptValue& value) {
    std::vector<WorldObject> objects;
    for (const ScriptValue& each : listFrom(value)) {
        Answers answers{.isList = false, .each = {each}};
        if (each.is(Kind::specifier)) {
            answers = resolve(model, each.asSpecifier());
        }
        for (const ObjectAnswer& answer : answers.each) {
            const auto* const object = std::get_if<WorldObject>(&answer);
            const ScriptValue plain =
                object == nullptr ? std::get<ScriptValue>(answer) : ScriptValue();
            if (object != nullptr) {
                objects.push_back(*object);
            } else if (plain.is(Kind::file)) {
                objects.push_back(itemAt(plain.asFilePath()));
            } else if (plain.is(Kind::text) && (plain.asText().starts_with('/') ||
                                                plain.asText().find(':') != std::string::npos)) {
                objects.push_back(itemAt(posixPathOf(plain.asText())));
            } else {
                failToGet(shown(plain), model.applicationName());
            }
        }
    }
    return objects;
}

std::string described(const Specifier& specifier) {
    std::string text;
    for (auto step = specifier.steps.rbegin(); step != specifier.steps.rend(); ++step) {
        text += text.empty() ? describedStep(*step) : " of " + describedStep(*step);
    }
    if (specifier.application.empty()) {
        return text;
    }
    return fmt::format("{}{}application {}\"{}\"", text, text.empty() ? "" : " of ",
                       specifier.byIdentifier ? "id " : "", specifier.application);
}

} // namespace qv::applescript::world
