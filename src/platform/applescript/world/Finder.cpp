#include "platform/applescript/world/Finder.h"

#include "platform/applescript/world/applications/ApplicationTarget.h"
#include "platform/applescript/world/applications/BusCalls.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/ItemCommands.h"
#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

namespace qv::applescript::world {

namespace {

using Kind = ScriptValue::Kind;

// A command that is being carried out.
struct Call {
    WorldContext& context;
    FileObjects& model;
    const Specifier& target;
    const Command& command;

    [[nodiscard]] ScriptValue object() const { return objectIn(target, command); }
    // Adds the object that is told as the direct one where there is none.
    [[nodiscard]] Command withObject() const {
        Command whole = command;
        whole.direct = object();
        whole.hasDirect = true;
        return whole;
    }
};

// An item as a file or a text; as another class it stays the object.
ObjectAnswer asType(const WorldObject& item, const ScriptValue& as) {
    const Term type = as.is(Kind::type) ? as.asTerm() : Term::none;
    const ScriptValue file = FileObjects::fileValue(item);
    switch (type) {
    case Term::alias:
    case Term::aliasList:
        return file;
    case Term::file:
    case Term::posixFile:
        return ScriptValue::file(file.asFilePath(), type);
    case Term::text:
    case Term::string:
    case Term::unicodeText:
        return ScriptValue::text(colonPathOf(file.asFilePath()));
    default:
        return item;
    }
}

ScriptValue get(const Call& call) {
    ScriptValue object = call.object();
    if (!object.is(Kind::specifier)) {
        return object;
    }
    Answers answers = resolve(call.model, object.asSpecifier());
    const ScriptValue* const as = call.command.parameter(Term::as);
    for (ObjectAnswer& each : answers.each) {
        const auto* const item = std::get_if<WorldObject>(&each);
        if (as != nullptr && item != nullptr && item->kind == WorldObject::Kind::item) {
            each = asType(*item, *as);
        }
    }
    return valueOf(call.model, answers);
}

ScriptValue count(const Call& call) {
    const ScriptValue object = call.object();
    if (object.is(Kind::list)) {
        return ScriptValue::integer(static_cast<std::int64_t>(object.asList().size()));
    }
    if (!object.is(Kind::specifier)) {
        failToGet(shown(object), call.model.applicationName());
    }
    const Answers answers = resolve(call.model, object.asSpecifier());
    std::size_t number = answers.each.size();
    if (!answers.isList) {
        const auto* const item = std::get_if<WorldObject>(&answers.each.front());
        const auto elements =
            item == nullptr ? std::nullopt : call.model.elements(*item, Term::item);
        number = elements ? elements->size() : number;
    }
    return ScriptValue::integer(static_cast<std::int64_t>(number));
}

bool isThere(const WorldObject& object) {
    return object.kind != WorldObject::Kind::item || FileFacts::of(object.path).has_value();
}

// A list without elements is not there, nor is a property without a value.
bool areThere(const Answers& answers) {
    return !answers.each.empty() && std::ranges::all_of(answers.each, [](const ObjectAnswer& each) {
        const auto* const object = std::get_if<WorldObject>(&each);
        return object != nullptr ? isThere(*object) : !std::get<ScriptValue>(each).isMissing();
    });
}

ScriptValue open(const Call& call) {
    const std::string speaker = call.model.applicationName();
    const ScriptValue* const with = call.command.parameter(Term::using_);
    std::optional<ResolvedApplication> application;
    if (with != nullptr && with->is(Kind::specifier) && with->asSpecifier().steps.empty()) {
        application = resolvedApplication(call.context, with->asSpecifier());
    } else if (with != nullptr) {
        for (const WorldObject& each : objectsIn(call.model, *with)) {
            application = {std::string(lastName(each.path)), each.path};
        }
    }
    for (const WorldObject& each : objectsIn(call.model, call.object())) {
        const auto facts = FileFacts::of(each.path);
        if (!facts) {
            failWithFile(error_number::kFileNotFound, each.path, speaker);
        }
        if (facts->isApplication && !application) {
            launchApplication(call.context, {std::string(lastName(each.path)), each.path});
        } else {
            openInSession(call.context, application ? &*application : nullptr, {each.path});
        }
    }
    return {};
}

ScriptValue reveal(const Call& call) {
    std::vector<std::string> urls;
    for (const WorldObject& each : objectsIn(call.model, call.object())) {
        if (!FileFacts::of(each.path)) {
            failWithFile(error_number::kFileNotFound, each.path, call.model.applicationName());
        }
        urls.push_back(URL::fileURLWithPath(each.path).absoluteString());
    }
    // Without a file manager nobody would see it.
    static_cast<void>(showInFileManager(call.context, urls));
    return {};
}

ScriptValue nothing(const Call& /*call*/) { return {}; }

ScriptValue refuse(const Call& call) {
    constexpr std::int64_t kNotPermitted = -1743;
    const std::string name = call.model.applicationName();
    fail(kNotPermitted,
         fmt::format("Not authorized to send “{}” to {}.", wordsOf(call.command.name), name), name);
}

using ItemCommand = ScriptValue (ItemCommands::*)(const Command&);

template <ItemCommand kCarryOut> ScriptValue onItems(const Call& call) {
    ItemCommands items(call.context, call.model);
    return (items.*kCarryOut)(call.withObject());
}

struct ObjectCommand {
    Term name;
    ScriptValue (*carryOut)(const Call&);
};

constexpr std::array kObjectCommands = std::to_array<ObjectCommand>({
    {Term::get, get},
    {Term::count, count},
    {Term::exists,
     [](const Call& call) { return ScriptValue::boolean(doExist(call.model, call.object())); }},
    {Term::deleteItem, onItems<&ItemCommands::trash>},
    {Term::move, onItems<&ItemCommands::move>},
    {Term::duplicate, onItems<&ItemCommands::duplicate>},
    {Term::make,
     [](const Call& call) { return ItemCommands(call.context, call.model).make(call.command); }},
    {Term::open, open},
    {Term::reveal, reveal},
    {Term::select, reveal},
    {Term::emptyTrash,
     [](const Call& call) {
         ItemCommands(call.context, call.model).emptyTrash();
         return ScriptValue();
     }},
    {Term::isRunning, [](const Call& /*call*/) { return ScriptValue::boolean(true); }},
    // Finder always runs, and never shows a window.
    {Term::activate, nothing},
    {Term::launch, nothing},
    {Term::run, nothing},
    {Term::reopen, nothing},
    {Term::quit, nothing},
    {Term::close, nothing},
    {Term::restart, refuse},
    {Term::shutDown, refuse},
    {Term::logOut, refuse},
    {Term::sleep, refuse},
});

} // namespace

ScriptValue objectIn(const Specifier& target, const Command& command) {
    return command.hasDirect ? command.direct : ScriptValue::specifier(target);
}

bool doExist(FileObjects& model, const ScriptValue& value) {
    constexpr std::array kMissing = {error_number::kCannotGet, error_number::kInvalidIndex,
                                     error_number::kFileNotFound, error_number::kFolderNotFound};
    try {
        const std::vector<ScriptValue> values = listFrom(value);
        return std::ranges::all_of(values, [&](const ScriptValue& each) {
            return each.is(Kind::specifier) ? areThere(resolve(model, each.asSpecifier()))
                                            : isThere(objectsIn(model, each).front());
        });
    } catch (const ScriptError& error) {
        if (std::ranges::find(kMissing, error.number) == kMissing.end()) {
            throw;
        }
        return false;
    }
}

ScriptValue sendToObjects(WorldContext& context, FileObjects& model, const Specifier& target,
                          const Command& command) {
    const auto found = std::ranges::find(kObjectCommands, command.name, &ObjectCommand::name);
    if (found == kObjectCommands.end()) {
        failToUnderstand(wordsOf(command.name), model.applicationName());
    }
    return found->carryOut({context, model, target, command});
}

void setOfObjects(WorldContext& context, FileObjects& model, const Specifier& object,
                  const ScriptValue& value) {
    Specifier container = object;
    const bool isName = !object.steps.empty() &&
                        object.steps.back().form == Specifier::Form::property &&
                        object.steps.back().term == Term::name && object.steps.size() > 1;
    if (isName) {
        container.steps.pop_back();
        const std::vector<WorldObject> items =
            objectsIn(model, ScriptValue::specifier(std::move(container)));
        if (items.size() == 1 && items.front().kind == WorldObject::Kind::item) {
            ItemCommands(context, model).rename(items.front(), value);
            return;
        }
    }
    Specifier inside = object;
    inside.application.clear();
    fail(error_number::kCannotSet,
         fmt::format("Can’t set {} to {}.", described(inside), shown(value)),
         model.applicationName());
}

} // namespace qv::applescript::world
