#pragma once

#include "platform/applescript/language/Binding.h"
#include "platform/applescript/language/Compiler.h"
#include "platform/applescript/language/Operators.h"
#include "platform/applescript/language/Tree.h"

#include <string>
#include <string_view>
#include <unordered_map>

namespace qv::applescript {

/// Writes a tree as the source that compiles to it.
class Printer {
public:
    /// `tree` has to outlive the printer. `isCareful`: words that only Finder and System Events
    /// know are not written as names.
    Printer(const Tree& tree, bool isCareful);
    [[nodiscard]] std::string script();

private:
    // Statements (Printer.cpp):
    void line(std::string_view text);
    void newLine();
    void declarations(std::string_view word, std::span<const std::string_view> names);
    void handler(const Handler& handler);
    void parameters(const Handler& handler);
    void body(const Block* block);
    void only(const Block* block);
    void statement(const Node* node);
    void branches(const IfStatement* node);
    void repeat(const RepeatStatement* node);
    void tell(const TellStatement* node);
    void tryBlock(const TryStatement* node);
    void error(const ErrorStatement* node);
    void considering(const ConsideringStatement* node);
    void timeout(const TimeoutStatement* node);
    void part(std::string_view label, const Node* node);

    // Expressions (PrinterExpressions.cpp); each gives its text.
    /// The operand is put in parentheses if it binds less tightly.
    [[nodiscard]] std::string operand(const Node* node, Level least);
    /// For a place where nothing follows but the end of a line or a parenthesis.
    [[nodiscard]] std::string whole(const Node* node);
    /// For a place where a word of a phrase follows.
    [[nodiscard]] std::string argument(const Node* node, Level least = Level::disjunction);
    [[nodiscard]] std::string bare(const Node* node);
    [[nodiscard]] std::string name(std::string_view name) const;
    [[nodiscard]] std::string handlerName(std::string_view name) const;
    [[nodiscard]] std::string literal(const ScriptValue& value, bool isKey) const;
    [[nodiscard]] std::string list(Nodes items);
    [[nodiscard]] std::string record(const RecordNode* node);
    [[nodiscard]] std::string unary(const Unary* node);
    [[nodiscard]] std::string binary(const Binary* node);
    [[nodiscard]] std::string coercion(const Coercion* node);

    // References and commands (PrinterReferences.cpp):
    [[nodiscard]] std::string chain(const Node* head);
    [[nodiscard]] std::string link(const Node* node);
    [[nodiscard]] std::string element(const Element* node);
    [[nodiscard]] std::string boundary(const Node* node, bool isFirst);
    [[nodiscard]] std::string key(const Node* node);
    [[nodiscard]] std::string call(const HandlerCall* node);
    [[nodiscard]] std::string labelledCall(const LabelledCall* node);
    [[nodiscard]] std::string command(const CommandNode* node);
    [[nodiscard]] std::string direct(const CommandNode* node);
    [[nodiscard]] std::string parameter(const CommandNode* node,
                                        const CommandNode::Parameter& parameter);

    const Tree& tree_;
    bool isCareful_;
    std::string out_;
    std::size_t indent_ = 0;
    std::unordered_map<std::string_view, std::string_view> written_; // names of handlers
};

} // namespace qv::applescript
