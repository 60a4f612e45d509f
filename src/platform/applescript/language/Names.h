#pragma once

#include "platform/applescript/language/ScriptLexer.h"
#include "platform/applescript/language/Tree.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qv::applescript {

/// Decides where each variable of a script lives. That is known at the end only, as a property may
/// be declared behind the handlers that name it.
class Names {
public:
    explicit Names(Tree& tree) : tree_(tree) { open(true); }

    // Declarations; each throws a ScriptError at `token` if another one forbids it.
    void addProperty(Variable* variable, std::string_view name, const Token& token);
    void addScriptGlobal(std::string_view name, const Token& token);
    void addParameter(Variable* variable, std::string_view name, const Token& token);
    void addGlobal(std::string_view name, const Token& token);
    void addLocal(std::string_view name, const Token& token);
    /// A variable of the handler that is being read.
    void use(Variable* variable, std::string_view name);

    /// Begins a handler. `close` goes back to the script's own statements.
    void openHandler() { open(false); }
    /// Whether the script's own statements are read.
    [[nodiscard]] bool isAtScript() const noexcept { return current_ == 0; }
    /// Returns the index under which `finish` finds the handler's names.
    [[nodiscard]] std::size_t close();
    /// Gives all variables their slots, and `handler` the names of its own. `index`: of `close`; 0
    /// stands for the script's own statements.
    void finish();
    void fill(Handler& handler, std::size_t index);

private:
    struct Entry {
        std::string_view name;
        bool isParameter = false;
        bool isLocal = false;
        bool isGlobal = false;
        std::vector<Variable*> uses{};
    };
    struct NameScope {
        bool isScript = false;
        std::vector<Entry> entries{};
        std::unordered_map<std::string, std::size_t> indexes{};
        std::vector<std::string_view> slots{};
    };
    struct ScriptName {
        std::uint32_t slot = 0;
        bool isProperty = false;
        bool isDeclared = false;
    };

    void open(bool isScript);
    Entry& entry(std::string_view name);
    ScriptName& scriptName(const std::string& lower, std::string_view name);
    void resolve(NameScope& scope);

    Tree& tree_;
    std::vector<NameScope> scopes_;
    std::size_t current_ = 0;
    std::unordered_map<std::string, ScriptName> script_;
};

} // namespace qv::applescript
