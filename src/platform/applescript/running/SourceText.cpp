#include "platform/applescript/running/Coercions.h"
#include "platform/applescript/running/Dates.h"
#include "platform/applescript/running/Interpreter.h"
#include "platform/foundation/values/ASCII.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

constexpr unsigned kDeepestShown = 100;

/// Writes values as source, and stops when there is enough.
class SourceWriter {
public:
    SourceWriter(OutsideWorld& world, std::size_t most) : world_(world), most_(most) {}

    void value(const ScriptValue& value, unsigned depth = 0);
    std::string take() {
        if (isFull()) {
            std::size_t end = std::min(most_, text_.size());
            while (end > 0 && (static_cast<unsigned char>(text_[end]) & 0xC0U) == 0x80) {
                --end;
            }
            text_.resize(end);
            text_ += "…";
        }
        return std::move(text_);
    }

private:
    using Form = Specifier::Form;
    [[nodiscard]] bool isFull() const noexcept { return text_.size() > most_; }
    void quoted(std::string_view text);
    void key(std::string_view name);
    void list(const std::vector<ScriptValue>& items, unsigned depth);
    void record(const ScriptValue::Fields& fields, unsigned depth);
    void specifier(const Specifier& specifier, unsigned depth);
    void step(const Specifier::Step& step, unsigned depth);
    void file(const ScriptValue& file);

    OutsideWorld& world_;
    std::size_t most_;
    std::string text_;
};

void SourceWriter::quoted(std::string_view text) {
    static constexpr std::string_view kSpecial = "\"\\\n\r\t";
    static constexpr std::string_view kLetters = "\"\\nrt";
    text_ += '"';
    for (const char c : text) {
        if (isFull()) {
            return;
        }
        const std::size_t special = kSpecial.find(c);
        if (special != std::string_view::npos) {
            text_ += '\\';
            text_ += kLetters[special];
        } else {
            text_ += c;
        }
    }
    text_ += '"';
}

void SourceWriter::key(std::string_view name) {
    const bool isTerm = std::ranges::any_of(terms(), [&](const TermInfo& info) {
        return info.kind == TermKind::property && info.words == name;
    });
    const bool isName =
        !name.empty() && !isDigit(name.front()) &&
        std::ranges::all_of(name, [](char c) { return isLetterOrDigit(c) || c == '_'; });
    if (isTerm || isName) {
        text_ += name;
    } else {
        text_.append("|").append(name).append("|");
    }
}

void SourceWriter::list(const std::vector<ScriptValue>& items, unsigned depth) {
    text_ += '{';
    for (std::size_t i = 0; i < items.size() && !isFull(); ++i) {
        text_ += i == 0 ? "" : ", ";
        value(items[i], depth + 1);
    }
    text_ += '}';
}

void SourceWriter::record(const ScriptValue::Fields& fields, unsigned depth) {
    text_ += '{';
    for (std::size_t i = 0; i < fields.size() && !isFull(); ++i) {
        text_ += i == 0 ? "" : ", ";
        key(fields[i].first);
        text_ += ':';
        value(fields[i].second, depth + 1);
    }
    text_ += '}';
}

void SourceWriter::step(const Specifier::Step& step, unsigned depth) {
    const TermInfo& info = infoOf(step.term);
    switch (step.form) {
    case Form::property:
        if (step.term == Term::none && step.key.is(ScriptValue::Kind::text)) {
            key(step.key.asText());
        } else {
            text_ += info.words;
        }
        return;
    case Form::every:
    case Form::some:
    case Form::middle:
    case Form::filter:
        text_ += step.form == Form::some     ? "some "
                 : step.form == Form::middle ? "middle "
                                             : "every ";
        text_ += info.words;
        text_ += step.form == Form::filter ? " whose …" : "";
        return;
    case Form::range:
        text_ += step.term == Term::text ? info.words : info.plural;
        text_ += ' ';
        value(step.key, depth + 1);
        text_ += " thru ";
        value(step.last, depth + 1);
        return;
    default:
        text_ += info.words;
        text_ += step.form == Form::id ? " id " : " ";
        value(step.key, depth + 1);
    }
}

// Writes the innermost object first, as it is read; the value or the application that it starts
// from comes last.
void SourceWriter::specifier(const Specifier& specifier, unsigned depth) {
    const bool isPart = specifier.application.empty();
    for (std::size_t i = specifier.steps.size(); i > 0 && !isFull(); --i) {
        const Specifier::Step& each = specifier.steps[i - 1];
        if (i == 1 && isPart) {
            value(each.key, depth + 1);
        } else {
            step(each, depth);
        }
        text_ += i > 1 || !isPart ? " of " : "";
    }
    if (!isPart) {
        text_ += specifier.byIdentifier ? "application id " : "application ";
        quoted(specifier.application);
    } else if (specifier.steps.empty()) {
        text_ += "current application";
    }
}

void SourceWriter::file(const ScriptValue& file) {
    text_ += file.fileForm() == Term::alias ? "alias " : "file ";
    quoted(world_.colonPath(file.asFilePath()));
}

void SourceWriter::value(const ScriptValue& value, unsigned depth) {
    if (isFull()) {
        return;
    }
    if (depth > kDeepestShown) {
        text_ += "…";
        return;
    }
    switch (value.kind()) {
    case Kind::constant:
    case Kind::type:
        text_ += wordsOf(value.asTerm());
        return;
    case Kind::boolean:
        text_ += value.asBoolean() ? "true" : "false";
        return;
    case Kind::integer:
    case Kind::real:
        text_ += numberText(value);
        return;
    case Kind::text:
        return quoted(value.asText());
    case Kind::date:
        text_ += "date ";
        return quoted(dateText(value.asDate()));
    case Kind::list:
        return list(value.asList(), depth);
    case Kind::record:
        return record(value.asRecord(), depth);
    case Kind::file:
        return file(value);
    case Kind::specifier:
        return specifier(value.asSpecifier(), depth);
    case Kind::script:
        text_ += "«script»";
    }
}

} // namespace

std::string sourceText(const ScriptValue& value, OutsideWorld& world, std::size_t most) {
    SourceWriter writer(world, most);
    writer.value(value);
    return writer.take();
}

} // namespace qv::applescript
