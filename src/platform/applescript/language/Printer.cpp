#include "platform/applescript/language/Printer.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qv::applescript {

namespace {

template <typename T> const T* as(const Node* node) noexcept { return static_cast<const T*>(node); }

bool mentionsApplications(std::string_view script) {
    const std::string lower = lowered(script);
    return std::ranges::any_of(
        std::to_array<std::string_view>({"finder", "system events", "systemevents"}),
        [&](std::string_view name) { return lower.find(name) != std::string::npos; });
}

} // namespace

std::string print(const Tree& tree) {
    std::string script = Printer(tree, false).script();
    return mentionsApplications(script) ? Printer(tree, true).script() : script;
}

Printer::Printer(const Tree& tree, bool isCareful) : tree_(tree), isCareful_(isCareful) {
    for (const Handler& handler : tree.handlers) {
        written_.emplace(handler.name, handler.writtenName);
    }
}

std::string Printer::script() {
    for (const Tree::Property& property : tree_.properties) {
        const std::string written =
            property.variable->name.empty() ? std::string("||") : name(property.variable->name);
        line("property " + written + " : " + whole(property.value));
    }
    declarations("global", tree_.declaredGlobals);
    if (tree_.run.isExplicit) {
        handler(tree_.run);
    } else {
        declarations("local", tree_.run.declaredLocals);
        for (const Node* node : tree_.run.body->statements) {
            newLine();
            statement(node);
        }
    }
    for (const Handler& each : tree_.handlers) {
        handler(each);
    }
    if (!out_.empty()) {
        out_ += '\n';
    }
    return std::move(out_);
}

void Printer::newLine() {
    if (!out_.empty()) {
        out_ += '\n';
    }
    out_.append(indent_, '\t');
}

void Printer::line(std::string_view text) {
    newLine();
    out_ += text;
}

void Printer::declarations(std::string_view word, std::span<const std::string_view> names) {
    std::string text;
    for (const std::string_view each : names) {
        text += (text.empty() ? " " : ", ") + name(each);
    }
    if (!text.empty()) {
        line(std::string(word) + text);
    }
}

void Printer::handler(const Handler& handler) {
    const bool isEvent = handler.labels.empty() && isEventName(handler.name);
    const std::string written =
        isEvent ? std::string(handler.writtenName) : name(handler.writtenName);
    if (!out_.empty()) {
        out_ += '\n';
    }
    line("on " + written);
    parameters(handler);
    ++indent_;
    declarations("global", handler.declaredGlobals);
    declarations("local", handler.declaredLocals);
    --indent_;
    body(handler.body);
    line("end " + written);
}

void Printer::parameters(const Handler& handler) {
    const bool isEvent = isEventName(handler.name);
    if (handler.labels.empty()) {
        if (isEvent && !handler.takesList && handler.parameters.size() < 2) {
            out_ += handler.parameters.empty() ? "" : " " + name(handler.parameters[0]->name);
            return;
        }
        out_ += handler.takesList ? " {" : "(";
        for (const Variable* each : handler.parameters) {
            out_ += (each == handler.parameters.front() ? "" : ", ") + name(each->name);
        }
        out_ += handler.takesList ? "}" : ")";
        return;
    }
    bool isGiven = false;
    for (std::size_t index = 0; index < handler.labels.size(); ++index) {
        const std::string_view label = handler.labels[index];
        const bool isDirect = index == 0 && (label == "of" || label == "in");
        if (isDirect || isPreposition(label)) {
            part(label, handler.parameters[index]);
            continue;
        }
        out_ += isGiven ? ", " : " given ";
        isGiven = true;
        out_ += name(label) + ":" + name(handler.parameters[index]->name);
    }
}

void Printer::body(const Block* block) {
    ++indent_;
    for (const Node* each : block->statements) {
        newLine();
        statement(each);
    }
    --indent_;
}

// The statement of a block in one line.
void Printer::only(const Block* block) { statement(block->statements.front()); }

void Printer::part(std::string_view label, const Node* node) {
    if (node != nullptr) {
        out_ += ' ';
        out_ += label;
        out_ += ' ' + operand(node, Level::disjunction);
    }
}

void Printer::statement(const Node* node) {
    switch (node->kind) {
    case NodeKind::set:
        out_ += "set " + operand(as<SetStatement>(node)->target, Level::reference);
        out_ += " to " + whole(as<SetStatement>(node)->value);
        return;
    case NodeKind::copy:
        out_ += "copy " + operand(as<CopyStatement>(node)->value, Level::disjunction);
        out_ += " to " + operand(as<CopyStatement>(node)->target, Level::reference);
        return;
    case NodeKind::ifElse:
        return branches(as<IfStatement>(node));
    case NodeKind::repeat:
        return repeat(as<RepeatStatement>(node));
    case NodeKind::tell:
        return tell(as<TellStatement>(node));
    case NodeKind::tryBlock:
        return tryBlock(as<TryStatement>(node));
    case NodeKind::error:
        return error(as<ErrorStatement>(node));
    case NodeKind::returnValue:
        out_ += "return";
        if (const Node* value = as<ReturnStatement>(node)->value; value != nullptr) {
            out_ += ' ' + whole(value);
        }
        return;
    case NodeKind::exitRepeat:
        out_ += "exit repeat";
        return;
    case NodeKind::considering:
        return considering(as<ConsideringStatement>(node));
    case NodeKind::timeout:
        return timeout(as<TimeoutStatement>(node));
    case NodeKind::block:
        out_ += "using terms from " + operand(as<Block>(node)->terms, Level::reference);
        body(as<Block>(node));
        line("end using terms from");
        return;
    case NodeKind::unknownPhrase:
        out_ += as<UnknownPhrase>(node)->words;
        return;
    default: {
        // Words that a statement begins with would make another one of it.
        const std::string text = whole(as<ExpressionStatement>(node)->expression);
        const bool isStatement = text.starts_with("return") || text.starts_with("end ");
        out_ += isStatement ? "(" + text + ")" : text;
    }
    }
}

void Printer::branches(const IfStatement* node) {
    for (std::size_t index = 0; index < node->branches.size(); ++index) {
        const IfStatement::Branch& branch = node->branches[index];
        if (index != 0) {
            node->isOneLine ? (void)(out_ += " else ") : line("else ");
        }
        out_ += "if " + operand(branch.condition, Level::disjunction) + " then";
        if (node->isOneLine) {
            out_ += ' ';
            only(branch.block);
        } else {
            body(branch.block);
        }
    }
    if (node->otherwise != nullptr && node->isOneLine) {
        out_ += " else ";
        only(node->otherwise);
    } else if (node->otherwise != nullptr) {
        line("else");
        body(node->otherwise);
    }
    if (!node->isOneLine) {
        line("end if");
    }
}

void Printer::repeat(const RepeatStatement* node) {
    out_ += "repeat";
    switch (node->form) {
    case RepeatStatement::Form::forever:
        break;
    case RepeatStatement::Form::times:
        out_ += ' ' + argument(node->first) + " times";
        break;
    case RepeatStatement::Form::whileTrue:
        part("while", node->first);
        break;
    case RepeatStatement::Form::until:
        part("until", node->first);
        break;
    case RepeatStatement::Form::counting:
        out_ += " with " + name(node->variable->name);
        part("from", node->first);
        part("to", node->last);
        part("by", node->step);
        break;
    case RepeatStatement::Form::in:
        out_ += " with " + name(node->variable->name);
        part("in", node->first);
        break;
    }
    body(node->block);
    line("end repeat");
}

void Printer::tell(const TellStatement* node) {
    out_ += "tell " + operand(node->target, Level::reference);
    if (node->isOneLine) {
        out_ += " to ";
        only(node->block);
        return;
    }
    body(node->block);
    line("end tell");
}

void Printer::tryBlock(const TryStatement* node) {
    out_ += "try";
    body(node->block);
    if (node->onError != nullptr) {
        line("on error");
        if (node->message != nullptr) {
            out_ += ' ' + name(node->message->name);
        }
        part("number", node->number);
        part("from", node->from);
        part("partial result", node->partialResult);
        part("to", node->to);
        body(node->onError);
    }
    line("end try");
}

void Printer::error(const ErrorStatement* node) {
    out_ += "error";
    if (node->message != nullptr) {
        const std::string text = argument(node->message);
        const bool isLabel = text.starts_with("number") || text.starts_with("partial");
        out_ += isLabel ? " (" + text + ")" : " " + text;
    }
    const auto value = [&](std::string_view label, const Node* part) {
        if (part != nullptr) {
            out_ += fmt::format(" {} {}", label, argument(part));
        }
    };
    value("number", node->number);
    value("from", node->from);
    value("partial result", node->partialResult);
    value("to", node->to);
}

void Printer::considering(const ConsideringStatement* node) {
    static constexpr auto kWords = std::to_array<std::string_view>(
        {"case", "diacriticals", "hyphens", "punctuation", "white space", "numeric strings"});
    const auto attributes = [&](std::uint8_t bits, bool isIgnored) {
        std::string text;
        const auto add = [&](std::string_view word) {
            text += (text.empty() ? "" : ", ") + std::string(word);
        };
        for (std::size_t bit = 0; bit < kWords.size(); ++bit) {
            if ((bits >> bit & 1U) != 0) {
                add(kWords[bit]);
            }
        }
        if (isIgnored && node->ignoresResponses) {
            add("application responses");
        }
        return text;
    };
    const std::string considered = attributes(node->considered, false);
    const std::string ignored = attributes(node->ignored, true);
    const std::string& first = node->isIgnoring ? ignored : considered;
    const std::string& second = node->isIgnoring ? considered : ignored;
    const std::string word = node->isIgnoring ? "ignoring" : "considering";
    // Attributes without a meaning here leave nothing.
    out_ += word + " " + (first.empty() ? "expansion" : first);
    if (!second.empty()) {
        out_ += " but " + std::string(node->isIgnoring ? "considering " : "ignoring ") + second;
    }
    body(node->block);
    line("end " + word);
}

void Printer::timeout(const TimeoutStatement* node) {
    out_ += "with timeout of " + argument(node->seconds) + " seconds";
    body(node->block);
    line("end timeout");
}

} // namespace qv::applescript
