#include "platform/applescript/language/Printer.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <numbers>

namespace qv::applescript {

namespace {

template <typename T> const T& to(const Node* node) noexcept {
    return *static_cast<const T*>(node);
}

// Whether the last word is a class, which a word behind it would be taken to select from.
bool endsWithClass(const Node* node) noexcept {
    while (node != nullptr) {
        switch (node->kind) {
        case NodeKind::literal:
            return to<Literal>(node).value.is(ScriptValue::Kind::type);
        case NodeKind::unary:
            node = to<Unary>(node).operand;
            break;
        case NodeKind::binary:
            node = to<Binary>(node).right;
            break;
        case NodeKind::propertyOf: {
            const auto& property = to<PropertyOf>(node);
            if (property.container == nullptr) {
                return property.property == Term::class_ || property.property == Term::file_;
            }
            node = property.container;
            break;
        }
        case NodeKind::element:
            node = to<Element>(node).container;
            break;
        case NodeKind::list:
            node = to<ListNode>(node).container;
            break;
        case NodeKind::handlerCall:
            node = to<HandlerCall>(node).receiver;
            break;
        case NodeKind::referenceTo:
            node = to<ReferenceTo>(node).object;
            break;
        default:
            return false;
        }
    }
    return false;
}

std::string quoted(std::string_view text) {
    static constexpr std::string_view kSpecial = "\"\\\n\r\t";
    static constexpr std::string_view kLetters = "\"\\nrt";
    std::string result = "\"";
    for (const char c : text) {
        const std::size_t index = kSpecial.find(c);
        if (index != std::string_view::npos) {
            result += '\\';
        }
        result += index == std::string_view::npos ? c : kLetters[index];
    }
    return result + '"';
}

// The fewest digits, with a point or an exponent, so that it is read as a real again: 1.0E+4.
std::string realText(double value) {
    static constexpr double kSmallest = 0.0001;
    static constexpr double kLargest = 10000;
    const bool isPlain = value == 0 || (value >= kSmallest && value < kLargest);
    std::array<char, 32> digits{};
    const auto written =
        std::to_chars(digits.data(), digits.data() + digits.size(), value,
                      isPlain ? std::chars_format::fixed : std::chars_format::scientific);
    std::string text(digits.data(), written.ptr);
    const std::size_t exponent = std::min(text.find('e'), text.size());
    std::string behind = text.substr(exponent);
    text.resize(exponent);
    if (text.find('.') == std::string::npos) {
        text += ".0";
    }
    if (behind.size() == 4 && behind[2] == '0') {
        behind.erase(2, 1);
    }
    std::ranges::replace(behind, 'e', 'E');
    return text + behind;
}

} // namespace

std::string Printer::name(std::string_view name) const {
    bool isPlain = !name.empty();
    for (std::size_t index = 0; index < name.size() && isPlain;) {
        const bool isFirst = index == 0;
        const char32_t point = decodeUTF8(name, index);
        isPlain = isFirst ? isNameStart(point) : isNamePart(point);
    }
    const Word word = isPlain ? Vocabulary::shared().wordOf(lowered(name)) : Word::none;
    if (word != Word::none) {
        const auto isTerm = [&](const Phrase& phrase) {
            const Dictionary dictionary = phrase.info->dictionary;
            const bool isKnown = isCareful_ || (dictionary != Dictionary::finder &&
                                                dictionary != Dictionary::systemEvents &&
                                                dictionary != Dictionary::both);
            const bool isWhole = phrase.length == 1 || phrase.words[1] == Word::to;
            return isWhole && isKnown && phrase.info->kind != TermKind::parameter;
        };
        isPlain = !Vocabulary::isReserved(word) && word != Word::applescript &&
                  std::ranges::none_of(Vocabulary::shared().phrasesOf(word), isTerm);
    }
    return isPlain ? std::string(name) : fmt::format("|{}|", name);
}

std::string Printer::handlerName(std::string_view lower) const {
    const auto found = written_.find(lower);
    return name(found == written_.end() ? lower : found->second);
}

std::string Printer::operand(const Node* node, Level least) {
    return isLoose(node, least) ? "(" + bare(node) + ")" : bare(node);
}

std::string Printer::whole(const Node* node) { return bare(node); }

std::string Printer::argument(const Node* node, Level least) {
    return endsWithClass(node) ? "(" + bare(node) + ")" : operand(node, least);
}

std::string Printer::bare(const Node* node) {
    switch (node->kind) {
    case NodeKind::literal:
        return literal(to<Literal>(node).value, false);
    case NodeKind::list:
        return isLink(node) ? chain(node) : list(to<ListNode>(node).items);
    case NodeKind::record:
        return record(static_cast<const RecordNode*>(node));
    case NodeKind::variable:
        return name(to<Variable>(node).name);
    case NodeKind::it:
        return "it";
    case NodeKind::me:
        return "me";
    case NodeKind::result:
        return "result";
    case NodeKind::unary:
        return unary(static_cast<const Unary*>(node));
    case NodeKind::binary:
        return binary(static_cast<const Binary*>(node));
    case NodeKind::coercion:
        return coercion(static_cast<const Coercion*>(node));
    case NodeKind::fileObject:
        return fmt::format("{} {}", wordsOf(to<FileObject>(node).form),
                           key(to<FileObject>(node).path));
    case NodeKind::applicationObject:
        return fmt::format("application {}{}",
                           to<ApplicationObject>(node).byIdentifier ? "id " : "",
                           key(to<ApplicationObject>(node).name));
    case NodeKind::command:
        return command(static_cast<const CommandNode*>(node));
    case NodeKind::unknownPhrase:
        return std::string(to<UnknownPhrase>(node).words);
    case NodeKind::labelledCall:
        return labelledCall(static_cast<const LabelledCall*>(node));
    case NodeKind::referenceTo:
        return "a reference to " + operand(to<ReferenceTo>(node).object, Level::reference);
    default:
        return chain(node);
    }
}

std::string Printer::literal(const ScriptValue& value, bool isKey) const {
    struct Row {
        std::string_view text;
        Term term;
    };
    static constexpr auto kRows = std::to_array<Row>({{"\r", Term::return_},
                                                      {"\t", Term::tab},
                                                      {"\n", Term::linefeed},
                                                      {"\"", Term::quote},
                                                      {" ", Term::space}});
    switch (value.kind()) {
    case ScriptValue::Kind::boolean:
        return value.asBoolean() ? "true" : "false";
    case ScriptValue::Kind::integer:
        return std::to_string(value.asInteger());
    case ScriptValue::Kind::real:
        return !isKey && value.asReal() == std::numbers::pi ? "pi" : realText(value.asReal());
    case ScriptValue::Kind::text: {
        const auto* row = std::ranges::find(kRows, value.asText(), &Row::text);
        return row == kRows.end() || isKey ? quoted(value.asText())
                                           : std::string(wordsOf(row->term));
    }
    default:
        return std::string(wordsOf(value.asTerm()));
    }
}

std::string Printer::list(Nodes items) {
    std::string text = "{";
    for (const Node* item : items) {
        text += (text.size() == 1 ? "" : ", ") + operand(item, Level::disjunction);
    }
    return text + "}";
}

std::string Printer::record(const RecordNode* node) {
    const auto keyText = [this](std::string_view key) -> std::string {
        const auto all = terms();
        if (std::ranges::find(all, key, &TermInfo::words) != all.end()) {
            return std::string(key);
        }
        const bool isTerm =
            !Vocabulary::shared().phrasesOf(Vocabulary::shared().wordOf(lowered(key))).empty();
        return isTerm ? fmt::format("|{}|", key) : name(key);
    };
    std::string text = "{";
    for (const RecordNode::Field& field : node->fields) {
        text += (text.size() == 1 ? "" : ", ") + keyText(field.key) + ":" +
                operand(field.value, Level::disjunction);
    }
    return text + "}";
}

std::string Printer::unary(const Unary* node) {
    if (node->operation == UnaryOperator::logicalNot) {
        return "not " + operand(node->operand, Level::equality);
    }
    // Two signs in a row would begin a comment.
    return (node->operation == UnaryOperator::negate ? "-" : "+") +
           operand(node->operand, Level::reference);
}

std::string Printer::binary(const Binary* node) {
    const Level level = levelOf(node->operation);
    const bool isPower = node->operation == BinaryOperator::power;
    const auto tighter = static_cast<Level>(static_cast<int>(level) + 1);
    return operand(node->left, isPower ? tighter : level) +
           fmt::format(" {} ", signOf(node->operation)) +
           operand(node->right, isPower ? level : tighter);
}

std::string Printer::coercion(const Coercion* node) {
    if (isDateOfText(*node)) {
        return "date " + key(node->value);
    }
    std::string types;
    for (const Term type : node->types) {
        types += (types.empty() ? "" : ", ") + std::string(wordsOf(type));
    }
    if (node->types.size() > 1) {
        types = "{" + types + "}";
    }
    return operand(node->value, Level::coercion) + " as " + types;
}

} // namespace qv::applescript
