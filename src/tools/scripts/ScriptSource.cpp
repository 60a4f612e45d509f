#include "tools/scripts/ScriptSource.h"

#include "platform/foundation/plist/TextEncoding.h"
#include "platform/foundation/values/ASCII.h"
#include "script/review/AuthoredForm.h"
#include "script/review/places/Allowances.h"
#include "script/review/places/LineIndex.h"
#include "script/step/OperationTable.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/JsonReader.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::tools {

/// The text of a script and the index of its places, which looks at it.
struct ScriptText {
    ScriptText(std::string_view decoded, TextNotation notation, std::size_t begin)
        : text(decoded), base(begin), lines(text), places(text, notation),
          allowances(allowancesIn(text, places)) {}

    std::string text;
    std::size_t base; // bytes of the file before the text: a byte order mark
    LineIndex lines;
    ScriptPlaces places;
    std::vector<Allowance> allowances;
};

namespace {

bool opensContainer(TextEvent::Kind kind) {
    return kind == TextEvent::Kind::openArray || kind == TextEvent::Kind::openDictionary;
}

TextEvent nextOfScript(TextEvents& events) {
    TextEvent event = events.next();
    while (event.kind == TextEvent::Kind::comment) {
        event = events.next();
    }
    return event;
}

// Whether a text that begins with a bracket is meant to be JSON, whose objects have a colon behind
// each key; a colon is part of an unquoted word of old-style text.
bool isMeantAsJson(std::string_view text) {
    TextEvents events(text, TextNotation::oldStyle);
    const TextEvent root = nextOfScript(events);
    const char bracket = root.begin < root.end ? text[root.begin] : '\0';
    if (!opensContainer(root.kind) || bracket != '{') {
        return opensContainer(root.kind) && bracket == '[';
    }
    const TextEvent first = nextOfScript(events);
    if (first.kind != TextEvent::Kind::key) {
        return true; // {} or a fault, which JSON's reader tells better
    }
    if (text[first.end - 1] == ':') {
        return true;
    }
    std::size_t behind = first.end;
    while (behind < text.size() && isSpace(text[behind])) {
        ++behind;
    }
    return text.substr(behind, 1) == ":";
}

Failure jsonFailure(const std::string& name, std::string_view text, const JsonFault& fault) {
    constexpr std::size_t kAround = 256;
    const LineIndex::Place place = LineIndex(text).of(fault.offset);
    const std::size_t begin = fault.offset - std::min(fault.offset, kAround);
    return {.status = ExitStatus::usage,
            .reason = fmt::format("{}:{}:{}: {}", name, place.line, place.column, fault.reason),
            .excerpt =
                std::pair(std::string(text.substr(begin, 2 * kAround)), fault.offset - begin)};
}

void addFaultsOfAllowances(ScriptSource& source) {
    for (const Allowance& allowance : source.text->allowances) {
        if (allowance.reason.empty()) {
            source.faults.push_back(
                {.rule = "allowance-without-reason",
                 .severity = Finding::Severity::warning,
                 .step = allowance.step,
                 .key = {},
                 .element = std::nullopt,
                 .offset = std::nullopt,
                 .reason = fmt::format("the comment that allows {} gives no reason and allows "
                                       "nothing",
                                       allowance.rule),
                 .mend = fmt::format("write lint: allow {}: and the reason", allowance.rule)});
        }
    }
    sortByPlace(source.faults);
}

void takeDocument(ScriptSource& source, const Value& document, bool isList) {
    const bool isScript = document.is(Value::Kind::array) || document.find("steps") != nullptr;
    AuthoredScript built = stepsFromAuthored(document);
    source.isExact = isList && (built.isExact || !isScript);
    if (source.isExact) {
        source.steps = document;
    } else {
        source.steps = std::move(built.steps);
        source.faults = std::move(built.faults);
    }
}

// The names that the key of a finding may have in the text of a step.
std::vector<std::string> namesOf(const Finding& finding, const Value& steps) {
    std::vector<std::string> names = {finding.key};
    const auto list = steps.is(Value::Kind::array) ? steps.asArray() : std::span<const Value>();
    const Value* code = finding.step && *finding.step < list.size()
                            ? list[*finding.step].find(stepKeyName(StepKey::operation))
                            : nullptr;
    const Operation* row = code != nullptr && code->is(Value::Kind::integer)
                               ? operationForCode(static_cast<std::uint64_t>(code->asInteger()))
                               : nullptr;
    for (const Field& field : row == nullptr ? std::span<const Field>() : row->fields) {
        if (finding.key == stepKeyName(field.key)) {
            names.push_back(field.writtenKey());
        } else if (finding.key == field.writtenKey()) {
            names.emplace_back(stepKeyName(field.key));
        }
    }
    return names;
}

} // namespace

bool ScriptSource::canBeSent() const {
    return std::ranges::none_of(
        faults, [](const Finding& fault) { return fault.severity == Finding::Severity::error; });
}

std::optional<TextPosition> ScriptSource::positionOf(const Finding& finding) const {
    if (!text) {
        return std::nullopt;
    }
    const std::vector<std::string> names = namesOf(finding, steps);
    const std::vector<std::string_view> keys(names.begin(), names.end());
    const std::size_t offset = text->places.find(
        {.step = finding.step,
         .keys = finding.key.empty() ? std::span<const std::string_view>() : std::span(keys),
         .keyItself = finding.rule == "unknown-key",
         .element = finding.element,
         .offset = finding.offset});
    const LineIndex::Place place = text->lines.of(offset);
    return TextPosition{place.line, place.column, text->base + offset};
}

std::optional<std::string> ScriptSource::allowance(const Finding& finding) const {
    if (!text) {
        return std::nullopt;
    }
    const auto reasonFor = [&](std::optional<std::size_t> step) -> std::optional<std::string> {
        for (const Allowance& each :
             std::ranges::equal_range(text->allowances, step, {}, &Allowance::step)) {
            if (each.rule == finding.rule && !each.reason.empty()) {
                return std::string(each.reason);
            }
        }
        return std::nullopt;
    };
    auto reason = finding.step ? reasonFor(finding.step) : std::nullopt;
    return reason ? reason : reasonFor(std::nullopt);
}

tl::expected<ScriptSource, Failure> readScript(const std::string& file) {
    auto content = readInput(file);
    if (!content) {
        return fileFailure(ExitStatus::usage, file, content.error());
    }
    ScriptSource source;
    source.file = file == "-" ? "standard input" : file;
    if (content->empty()) {
        return failure(ExitStatus::usage, source.file + ": the file is empty");
    }
    const auto decoded = plist::decodeText(*content);
    const std::string_view text = decoded ? decoded->view() : std::string_view();
    const bool isBinary = content->starts_with("bplist0");
    const bool isUTF8 = !isBinary && decoded && text.data() >= content->data() &&
                        text.data() <= content->data() + content->size();
    TextNotation notation = TextNotation::json;
    if (!isBinary && decoded && isMeantAsJson(text)) {
        const auto document = readJson(text);
        if (!document) {
            return tl::unexpected(jsonFailure(source.file, text, document.error()));
        }
        takeDocument(source, *document, false);
    } else {
        const auto list = listIn(file, *content);
        if (!list) {
            return tl::unexpected(Failure{ExitStatus::usage, list.error().reason});
        }
        notation = list->document.format == PropertyListFormat::xml ? TextNotation::xml
                                                                    : TextNotation::oldStyle;
        source.isOldStyle = list->document.format == PropertyListFormat::oldStyle;
        takeDocument(source, list->document.root, true);
    }
    if (isUTF8) {
        source.text = std::make_shared<const ScriptText>(
            text, notation, static_cast<std::size_t>(text.data() - content->data()));
        addFaultsOfAllowances(source);
    }
    source.content = std::move(*content);
    return source;
}

} // namespace qv::tools
