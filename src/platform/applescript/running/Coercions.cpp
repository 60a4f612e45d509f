#include "platform/applescript/running/Coercions.h"

#include "platform/applescript/running/Dates.h"
#include "platform/applescript/running/Failure.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;
using Coerced = std::optional<ScriptValue>;

bool equalsWord(std::string_view text, std::string_view word) noexcept {
    return text.size() == word.size() &&
           std::equal(text.begin(), text.end(), word.begin(),
                      [](char c, char lower) { return static_cast<char>(c | 0x20) == lower; });
}

/// The only item of a list of one; else null.
const ScriptValue* onlyItem(const ScriptValue& value) noexcept {
    return value.is(Kind::list) && value.asList().size() == 1 ? value.asList().data() : nullptr;
}

/// A text that grows, and is counted as it does.
class GrowingText {
public:
    void append(std::string_view more) {
        const std::size_t capacity = text_.capacity();
        if (more.size() > capacity - text_.size()) {
            const std::size_t wanted = std::max(2 * capacity, text_.size() + more.size());
            ScriptValue::expectBytes(wanted);
            text_.reserve(wanted);
            held_.grow(text_.capacity() - capacity);
        }
        text_.append(more);
    }
    std::string take() {
        held_.release();
        return std::move(text_);
    }

private:
    std::string text_;
    HeldBytes held_;
};

/// The text of a value other than a text and a list.
std::optional<std::string> plainText(const ScriptValue& value, const Context& context) {
    switch (value.kind()) {
    case Kind::date:
        return dateText(value.asDate());
    case Kind::file:
        return context.world.colonPath(value.asFilePath());
    case Kind::specifier:
        if (value.asSpecifier().steps.empty()) {
            return value.asSpecifier().application;
        }
        return std::nullopt;
    default:
        return scalarText(value);
    }
}

/// The items of a list one after the other, the delimiter between them; whether all are texts.
bool join(GrowingText& text, const ScriptValue& list, const Context& context, unsigned depth) {
    if (depth > kDeepestValue) {
        failTooDeep();
    }
    bool isFirst = true;
    for (const ScriptValue& item : list.asList()) {
        context.bounds.step();
        if (!std::exchange(isFirst, false)) {
            text.append(context.delimiterTexts.front().asText());
        }
        if (item.is(Kind::text)) {
            text.append(item.asText());
        } else if (item.is(Kind::list)) {
            if (!join(text, item, context, depth + 1)) {
                return false;
            }
        } else if (const auto part = plainText(item, context)) {
            text.append(*part);
        } else {
            return false;
        }
    }
    return true;
}

Coerced toText(const ScriptValue& value, const Context& context) {
    if (value.is(Kind::text)) {
        return value;
    }
    if (value.is(Kind::list)) {
        GrowingText text;
        return join(text, value, context, 0) ? Coerced(ScriptValue::text(text.take()))
                                             : std::nullopt;
    }
    std::optional<std::string> text = plainText(value, context);
    return text ? Coerced(ScriptValue::text(std::move(*text))) : std::nullopt;
}

Coerced toNumber(const ScriptValue& value, const Context& context) {
    switch (value.kind()) {
    case Kind::integer:
    case Kind::real:
        return value;
    case Kind::text:
        return numberFromText(value.asText());
    case Kind::boolean:
        return ScriptValue::integer(value.asBoolean() ? 1 : 0);
    case Kind::constant: {
        const int number = numberOf(value.asTerm());
        return number != 0 ? Coerced(ScriptValue::integer(number)) : std::nullopt;
    }
    case Kind::list: {
        const ScriptValue* item = onlyItem(value);
        return item != nullptr && !item->is(Kind::list) ? toNumber(*item, context) : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

Coerced toInteger(const ScriptValue& value, const Context& context) {
    Coerced number = toNumber(value, context);
    if (number && number->is(Kind::real)) {
        const double rounded = std::nearbyint(number->asReal());
        constexpr double kMostExact = 9.0e15;
        return std::abs(rounded) <= kMostExact
                   ? Coerced(ScriptValue::integer(static_cast<std::int64_t>(rounded)))
                   : std::nullopt;
    }
    return number;
}

Coerced toReal(const ScriptValue& value, const Context& context) {
    const Coerced number = toNumber(value, context);
    return number ? Coerced(ScriptValue::real(realOf(*number))) : std::nullopt;
}

Coerced toBoolean(const ScriptValue& value, const Context& context) {
    if (value.is(Kind::boolean)) {
        return value;
    }
    if (value.isNumber()) {
        return ScriptValue::boolean(realOf(value) != 0);
    }
    if (value.is(Kind::text)) {
        const bool isTrue = equalsWord(value.asText(), "true");
        return isTrue || equalsWord(value.asText(), "false") ? Coerced(ScriptValue::boolean(isTrue))
                                                             : std::nullopt;
    }
    const ScriptValue* item = onlyItem(value);
    return item != nullptr && !item->is(Kind::list) ? toBoolean(*item, context) : std::nullopt;
}

Coerced toList(const ScriptValue& value, const Context& /*context*/) {
    if (value.is(Kind::list)) {
        return value;
    }
    std::vector<ScriptValue> items;
    if (value.is(Kind::record)) {
        ScriptValue::expectBytes(value.asRecord().size() * sizeof(ScriptValue));
        items.reserve(value.asRecord().size());
        for (const auto& [key, field] : value.asRecord()) {
            items.push_back(field);
        }
    } else {
        items.push_back(value);
    }
    return ScriptValue::list(std::move(items));
}

Coerced toDate(const ScriptValue& value, const Context& context) {
    if (!value.is(Kind::text)) {
        return value.is(Kind::date) ? Coerced(value) : std::nullopt;
    }
    const auto date = dateFromText(value.asText(), context.world.now());
    return date ? Coerced(ScriptValue::date(*date)) : std::nullopt;
}

Coerced toFile(const ScriptValue& value, Term form, const Context& context) {
    if (value.is(Kind::file)) {
        return ScriptValue::file(value.asFilePath(), form);
    }
    if (!value.is(Kind::text)) {
        return std::nullopt;
    }
    const std::string& text = value.asText();
    const bool isPath = form == Term::posixFile || text.starts_with('/');
    std::string path = isPath ? text : context.world.posixPath(text);
    if (!path.starts_with('/')) {
        path.insert(0, "/");
    }
    return ScriptValue::file(std::move(path), form);
}

Coerced toAlias(const ScriptValue& value, const Context& context) {
    Coerced file = toFile(value, Term::alias, context);
    if (file && !context.world.fileExists(file->asFilePath())) {
        ScriptError error;
        error.number = error_number::kFileNotFound;
        error.brief = "File " + context.world.colonPath(file->asFilePath()) + " wasn’t found.";
        error.offender = std::move(*file);
        throwError(std::move(error));
    }
    const bool isFolder = file && context.world.fileExists(file->asFilePath() + "/");
    return isFolder && !file->asFilePath().ends_with('/')
               ? ScriptValue::file(file->asFilePath() + "/", Term::alias)
               : file;
}

Coerced toAliasList(const ScriptValue& value, const Context& context) {
    std::vector<ScriptValue> files;
    const std::size_t count = value.is(Kind::list) ? value.asList().size() : 1;
    const HeldBytes held(count * sizeof(ScriptValue));
    for (std::size_t index = 0; index < count; ++index) {
        Coerced file = toAlias(value.is(Kind::list) ? value.asList()[index] : value, context);
        if (!file) {
            return std::nullopt;
        }
        files.push_back(std::move(*file));
    }
    return ScriptValue::list(std::move(files));
}

template <Kind Wanted> Coerced onlyItself(const ScriptValue& value, const Context& /*context*/) {
    return value.is(Wanted) ? Coerced(value) : std::nullopt;
}

struct CoercionRow {
    Term type;
    Coerced (*coerce)(const ScriptValue& value, const Context& context);
};
constexpr auto kCoercions = std::to_array<CoercionRow>({
    {Term::anything, [](const auto& value, const auto&) { return Coerced(value); }},
    {Term::item, [](const auto& value, const auto&) { return Coerced(value); }},
    {Term::reference, [](const auto& value, const auto&) { return Coerced(value); }},
    {Term::text, toText},
    {Term::string, toText},
    {Term::unicodeText, toText},
    {Term::integer, toInteger},
    {Term::real, toReal},
    {Term::number, toNumber},
    {Term::boolean, toBoolean},
    {Term::list, toList},
    {Term::record, onlyItself<Kind::record>},
    {Term::date, toDate},
    {Term::classClass, onlyItself<Kind::type>},
    {Term::constantClass, onlyItself<Kind::constant>},
    {Term::script, onlyItself<Kind::script>},
    {Term::alias, toAlias},
    {Term::aliasList, toAliasList},
    {Term::file,
     [](const auto& value, const auto& context) { return toFile(value, Term::file, context); }},
    {Term::posixFile, [](const auto& value,
                         const auto& context) { return toFile(value, Term::posixFile, context); }},
});

} // namespace

std::optional<ScriptValue> tryCoerced(const ScriptValue& value, Term type, const Context& context) {
    const auto* row = std::ranges::find(kCoercions, type, &CoercionRow::type);
    return row != kCoercions.end() ? row->coerce(value, context) : std::nullopt;
}

ScriptValue coerced(const ScriptValue& value, Term type, const Context& context) {
    Coerced result = tryCoerced(value, type, context);
    if (!result) {
        failToMake(value, type, context);
    }
    return std::move(*result);
}

std::string textOf(const ScriptValue& value, const Context& context) {
    return value.is(Kind::text) ? value.asText() : coerced(value, Term::text, context).asText();
}

ScriptValue numberOf(const ScriptValue& value, const Context& context) {
    if (value.is(Kind::boolean)) {
        failToMake(value, Term::number, context);
    }
    return coerced(value, Term::number, context);
}

std::int64_t integerOf(const ScriptValue& value, const Context& context) {
    return value.is(Kind::integer) ? value.asInteger()
                                   : coerced(value, Term::integer, context).asInteger();
}

bool booleanOf(const ScriptValue& value, const Context& context) {
    if (!value.is(Kind::boolean)) {
        failToMake(value, Term::boolean, context);
    }
    return value.asBoolean();
}

Term classOf(const ScriptValue& value) noexcept {
    switch (value.kind()) {
    case Kind::constant:
        return value.isMissing()                 ? Term::classClass
               : numberOf(value.asTerm()) == 0   ? Term::constantClass
               : value.asTerm() >= Term::january ? Term::month
                                                 : Term::weekday;
    case Kind::boolean:
        return Term::boolean;
    case Kind::integer:
        return Term::integer;
    case Kind::real:
        return Term::real;
    case Kind::type:
        return Term::classClass;
    case Kind::text:
        return Term::text;
    case Kind::date:
        return Term::date;
    case Kind::list:
        return Term::list;
    case Kind::record:
        return Term::record;
    case Kind::file:
        return value.fileForm() == Term::alias ? Term::alias : Term::file;
    case Kind::specifier:
        return value.asSpecifier().steps.empty() ? Term::application
                                                 : value.asSpecifier().steps.back().term;
    case Kind::script:
        return Term::script;
    }
    return Term::anything;
}

bool sameClass(Term left, Term right) noexcept {
    const auto usual = [](Term term) {
        const bool isText = term == Term::string || term == Term::unicodeText;
        return isText ? Term::text : term == Term::posixFile ? Term::file : term;
    };
    return usual(left) == usual(right);
}

bool isOfClass(const ScriptValue& value, Term type) noexcept {
    if (type == Term::item || type == Term::anything) {
        return true;
    }
    return type == Term::number ? value.isNumber() : sameClass(classOf(value), type);
}

ScriptValue deepCopy(const ScriptValue& value, const Context& context, unsigned depth) {
    context.bounds.step();
    if (depth > kDeepestValue) {
        failTooDeep();
    }
    if (value.is(Kind::date)) {
        return ScriptValue::date(value.asDate());
    }
    if (value.is(Kind::list)) {
        std::vector<ScriptValue> items;
        const HeldBytes held(value.asList().size() * sizeof(ScriptValue));
        items.reserve(value.asList().size());
        for (const ScriptValue& item : value.asList()) {
            items.push_back(deepCopy(item, context, depth + 1));
        }
        return ScriptValue::list(std::move(items));
    }
    if (value.is(Kind::record)) {
        ScriptValue::Fields fields;
        const HeldBytes held(value.asRecord().size() * sizeof(ScriptValue::Fields::value_type));
        fields.reserve(value.asRecord().size());
        for (const auto& [key, field] : value.asRecord()) {
            fields.emplace_back(key, deepCopy(field, context, depth + 1));
        }
        return ScriptValue::record(std::move(fields));
    }
    return value;
}

} // namespace qv::applescript
