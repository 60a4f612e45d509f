#include "platform/applescript/world/PathTo.h"

#include "platform/applescript/world/applications/ApplicationTarget.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/FolderPaths.h"
#include "platform/foundation/files/item/MakeFolders.h"
#include "platform/foundation/values/URL.h"
#include "platform/workspace/applications/Patience.h"

#include <filesystem>
#include <system_error>

namespace qv::applescript::world {

namespace {

// The folder that a script names; it is a value of some kind that stands for a term.
Term termIn(const ScriptValue& value) {
    switch (value.kind()) {
    case ScriptValue::Kind::constant:
    case ScriptValue::Kind::type:
        return value.asTerm();
    case ScriptValue::Kind::specifier: {
        const auto& steps = value.asSpecifier().steps;
        return steps.empty() ? Term::none : steps.back().term;
    }
    default:
        return Term::none;
    }
}

std::string ownProgram() {
    std::error_code failure;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", failure);
    if (failure) {
        failToGet("path to me");
    }
    return path.native();
}

std::string pathOfObject(WorldContext& context, const ScriptValue& object, Term domain) {
    const bool isApplication = object.is(ScriptValue::Kind::specifier) &&
                               object.asSpecifier().steps.empty() &&
                               !object.asSpecifier().application.empty();
    if (isApplication) {
        return resolvedApplication(context, object.asSpecifier()).path;
    }
    if (object.is(ScriptValue::Kind::script) || object.isConstant(Term::currentApplication)) {
        return ownProgram();
    }
    const Term term = termIn(object);
    std::optional<std::string> path = folderPath(context, term, domain);
    if (!path) {
        failToGet(term == Term::none ? shown(object) : wordsOf(term));
    }
    return joined(*path, "");
}

} // namespace

ScriptValue pathTo(WorldContext& context, const Command& command) {
    const ScriptValue* const from = command.parameter(Term::from);
    const std::string path =
        pathOfObject(context, directOf(command), from == nullptr ? Term::none : termIn(*from));
    if (flagParameter(command, Term::folderCreation)) {
        const WorkResult made = context.performAs(
            context.user(),
            [&]() -> WorkResult {
                const auto folder = openOrMakeFolders(std::string(withoutTrailingSlashes(path)));
                return resultOf(folder ? Error() : Error::posix(folder.error()));
            },
            context.processes->patienceWith(context.user().user, kPatienceToLook));
        if (!made) {
            failWithFile(made.error(), path);
        }
    }
    const ScriptValue* const as = command.parameter(Term::as);
    const bool wantsText = as != nullptr && as->is(ScriptValue::Kind::type) &&
                           (as->asTerm() == Term::text || as->asTerm() == Term::string ||
                            as->asTerm() == Term::unicodeText);
    return wantsText ? ScriptValue::text(colonPathOf(path)) : ScriptValue::file(path, Term::alias);
}

} // namespace qv::applescript::world
