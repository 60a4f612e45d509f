#include "platform/applescript/language/Names.h"

#include <fmt/core.h>

#include <utility>

namespace qv::applescript {

namespace {

[[noreturn]] void failTwice(std::string_view name, const Token& token) {
    throw syntaxError(error_number::kLocalAndGlobal,
                      fmt::format("Can’t declare {} as both a local and global variable.", name),
                      token.begin, token.end);
}

} // namespace

void Names::open(bool isScript) {
    current_ = scopes_.size();
    scopes_.push_back({.isScript = isScript});
}

std::size_t Names::close() { return std::exchange(current_, 0); }

Names::Entry& Names::entry(std::string_view name) {
    NameScope& scope = scopes_[current_];
    const auto [place, isNew] = scope.indexes.emplace(lowered(name), scope.entries.size());
    if (isNew) {
        scope.entries.push_back({.name = tree_.keep(name)});
    }
    return scope.entries[place->second];
}

Names::ScriptName& Names::scriptName(const std::string& lower, std::string_view name) {
    const auto [place, isNew] = script_.emplace(lower, ScriptName{});
    if (isNew) {
        place->second.slot = static_cast<std::uint32_t>(tree_.globals.size());
        tree_.globals.push_back(tree_.keep(name));
    }
    return place->second;
}

void Names::addProperty(Variable* variable, std::string_view name, const Token& token) {
    ScriptName& found = scriptName(lowered(name), name);
    if (found.isProperty) {
        throw syntaxError(error_number::kPropertyTwice,
                          fmt::format("The property {} is specified more than once.", name),
                          token.begin, token.end);
    }
    found.isProperty = true;
    found.isDeclared = true;
    variable->name = tree_.globals[found.slot];
    variable->scope = Scope::script;
    variable->slot = found.slot;
}

void Names::addScriptGlobal(std::string_view name, const Token& token) {
    const Entry& first = entry(name);
    if (first.isLocal) {
        failTwice(name, token);
    }
    ScriptName& found = scriptName(lowered(name), first.name);
    if (!std::exchange(found.isDeclared, true)) {
        tree_.declaredGlobals.push_back(tree_.globals[found.slot]);
    }
}

void Names::addParameter(Variable* variable, std::string_view name, const Token& token) {
    if (Entry& found = entry(name); std::exchange(found.isParameter, true)) {
        throw syntaxError(error_number::kParameterTwice,
                          fmt::format("The parameter {} is specified more than once.", name),
                          token.begin, token.end);
    }
    use(variable, name);
}

void Names::addGlobal(std::string_view name, const Token& token) {
    Entry& found = entry(name);
    found.isGlobal = true;
    if (found.isLocal || found.isParameter) {
        failTwice(name, token);
    }
}

void Names::addLocal(std::string_view name, const Token& token) {
    Entry& found = entry(name);
    found.isLocal = true;
    const auto script = script_.find(lowered(name));
    const bool isScriptGlobal = scopes_[current_].isScript && script != script_.end() &&
                                script->second.isDeclared && !script->second.isProperty;
    if (found.isGlobal || isScriptGlobal) {
        failTwice(name, token);
    }
}

void Names::use(Variable* variable, std::string_view name) {
    Entry& found = entry(name);
    variable->name = found.name;
    found.uses.push_back(variable);
}

void Names::finish() {
    // The names of `global` are the script's own wherever it stands.
    for (const NameScope& scope : scopes_) {
        for (const Entry& each : scope.entries) {
            if (each.isGlobal) {
                (void)scriptName(lowered(each.name), each.name);
            }
        }
    }
    for (NameScope& scope : scopes_) {
        resolve(scope);
    }
}

void Names::resolve(NameScope& scope) {
    for (Entry& each : scope.entries) {
        const std::string lower = lowered(each.name);
        const auto found = script_.find(lower);
        const bool isDeclared = found != script_.end() && found->second.isDeclared;
        const bool isOwn = each.isParameter || each.isLocal;
        const bool isScript = !isOwn && (each.isGlobal || isDeclared || scope.isScript);
        std::uint32_t slot = 0;
        if (isScript) {
            slot = scriptName(lower, each.name).slot;
        } else {
            slot = static_cast<std::uint32_t>(scope.slots.size());
            scope.slots.push_back(each.name);
        }
        for (Variable* variable : each.uses) {
            variable->scope = isScript ? Scope::script : Scope::handler;
            variable->slot = slot;
        }
    }
}

void Names::fill(Handler& handler, std::size_t index) {
    NameScope& scope = scopes_[index];
    for (const Entry& each : scope.entries) {
        if (each.isGlobal) {
            handler.declaredGlobals.push_back(each.name);
        }
        if (each.isLocal) {
            handler.declaredLocals.push_back(each.name);
        }
    }
    handler.slots = static_cast<std::uint32_t>(scope.slots.size());
    handler.names = std::move(scope.slots);
}

} // namespace qv::applescript
