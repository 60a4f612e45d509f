#include "platform/applescript/world/SystemEvents.h"

#include "platform/applescript/world/Finder.h"
#include "platform/applescript/world/applications/ApplicationProcesses.h"
#include "platform/applescript/world/applications/ApplicationTarget.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/foundation/process/state/UserRecord.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

namespace qv::applescript::world {

namespace {

using ObjectKind = WorldObject::Kind;

constexpr const char* kSystemEvents = "System Events";

WorldObject processObject(const RunningProcess& process) {
    return {.kind = ObjectKind::process,
            .path = process.executable,
            .name = process.name,
            .process = process.id};
}

WorldObject loginItemObject(const LoginItem& item) {
    return {.kind = ObjectKind::loginItem, .path = item.fileName, .name = item.name};
}

WorldObject userObject(const UserRecord& user) {
    return {.kind = ObjectKind::user, .name = user.name};
}

bool isProcessType(Term type) { return type == Term::process || type == Term::applicationProcess; }

ScriptValue objectSpecifier(Term type, Specifier::Form form, ScriptValue key) {
    return ScriptValue::specifier({.application = kSystemEvents,
                                   .steps = {{.form = form, .term = type, .key = std::move(key)}}});
}

ScriptValue makeFrom(WorldContext& context, SystemEventsObjects& model, const Command& command) {
    const ScriptValue none = ScriptValue::record({});
    const ScriptValue* given = command.parameter(Term::withProperties);
    const ScriptValue& properties = given == nullptr ? none : *given;
    const ScriptValue* const path = fieldOf(properties, wordsOf(Term::path));
    const ScriptValue* const name = fieldOf(properties, wordsOf(Term::name));
    const ScriptValue* const hidden = fieldOf(properties, wordsOf(Term::hidden));
    if (path == nullptr) {
        fail(error_number::kParameterMissing, "The path is missing for make new login item.",
             kSystemEvents);
    }
    LoginItem item;
    item.path = objectsIn(model, *path).front().path;
    const auto facts = FileFacts::of(item.path);
    if (!facts) {
        failWithFile(error_number::kFileNotFound, item.path, kSystemEvents);
    }
    const std::string fileName(lastName(item.path));
    item.name =
        name != nullptr ? textFrom(*name) : validText(fileName.substr(0, fileName.rfind('.')));
    item.isHidden = hidden != nullptr && booleanFrom(*hidden);
    makeLoginItem(context, item);
    return objectSpecifier(Term::loginItem, Specifier::Form::name, ScriptValue::text(item.name));
}

// Login items among the objects are removed; true if all of them were login items.
bool removeLoginItems(WorldContext& context, SystemEventsObjects& model,
                      const ScriptValue& object) {
    const std::vector<WorldObject> objects = objectsIn(model, object);
    const auto isLoginItem = [](const WorldObject& each) {
        return each.kind == ObjectKind::loginItem;
    };
    if (!std::ranges::all_of(objects, isLoginItem)) {
        return false;
    }
    for (const WorldObject& each : objects) {
        removeLoginItem(context, each.path);
    }
    return true;
}

} // namespace

SystemEventsObjects::SystemEventsObjects(WorldContext& context)
    : FileObjects(
          context,
          {.application = kSystemEvents, .showsHidden = true, .relativeTo = Term::homeFolder}) {}

const std::vector<RunningProcess>& SystemEventsObjects::processes() {
    if (!processes_) {
        processes_ = runningProcesses();
    }
    return *processes_;
}

std::optional<std::vector<WorldObject>> SystemEventsObjects::elements(const WorldObject& of,
                                                                      Term type) {
    std::vector<WorldObject> found;
    if (of.kind == ObjectKind::application && isProcessType(type)) {
        std::ranges::transform(processes(), std::back_inserter(found), processObject);
        return found;
    }
    if (of.kind == ObjectKind::application && type == Term::loginItem) {
        std::ranges::transform(loginItems(context()), std::back_inserter(found), loginItemObject);
        return found;
    }
    if (of.kind == ObjectKind::application && type == Term::user) {
        return std::vector{userObject(context().user())};
    }
    if (of.kind == ObjectKind::process && type == Term::window) {
        return found;
    }
    return FileObjects::elements(of, type);
}

std::optional<WorldObject> SystemEventsObjects::named(const WorldObject& of, Term type,
                                                      const ScriptValue& key) {
    if (of.kind != ObjectKind::application ||
        (!isProcessType(type) && type != Term::loginItem && type != Term::user)) {
        return FileObjects::named(of, type, key);
    }
    if (type == Term::user) {
        const auto user = userRecord(textFrom(key));
        return user ? std::optional(userObject(*user)) : std::nullopt;
    }
    const std::optional<std::vector<WorldObject>> all = elements(of, type);
    const auto found = std::ranges::find_if(*all, [&](const WorldObject& each) {
        return key.isNumber() && each.kind == ObjectKind::process
                   ? static_cast<double>(each.process) == numberFrom(key)
                   : isSameText(each.name, textFrom(key));
    });
    if (found != all->end()) {
        return *found;
    }
    if (!isProcessType(type) || key.isNumber()) {
        return std::nullopt;
    }
    // The application under its name for people.
    const auto application =
        findApplication(context(), {.application = textFrom(key), .steps = {}});
    const std::vector<RunningProcess> its =
        application ? processesOf(context(), startOf(context(), *application))
                    : std::vector<RunningProcess>();
    return its.empty() ? std::nullopt : std::optional(processObject(its.front()));
}

std::optional<ObjectAnswer> SystemEventsObjects::processProperty(const WorldObject& of, Term term) {
    switch (term) {
    case Term::name:
    case Term::displayedName:
    case Term::shortName:
        return ScriptValue::text(validText(of.name));
    case Term::unixID:
    case Term::id:
        return numberValue(of.process);
    case Term::file_:
    case Term::file:
    case Term::applicationFile:
        return itemAt(of.path);
    case Term::posixPath:
        return ScriptValue::text(validText(of.path));
    case Term::backgroundOnly:
        return ScriptValue::boolean(applicationUnitOf(of.process).empty());
    case Term::visible:
        return ScriptValue::boolean(!applicationUnitOf(of.process).empty());
    case Term::frontmost:
        return ScriptValue::boolean(false);
    case Term::class_:
        return ScriptValue::type(Term::applicationProcess);
    case Term::bundleIdentifier:
        return ScriptValue();
    default:
        return std::nullopt;
    }
}

std::optional<ObjectAnswer> SystemEventsObjects::loginItemProperty(const WorldObject& of,
                                                                   Term term) {
    const std::vector<LoginItem> items = loginItems(context());
    const auto item = std::ranges::find(items, of.path, &LoginItem::fileName);
    if (item == items.end()) {
        return std::nullopt;
    }
    switch (term) {
    case Term::name:
        return ScriptValue::text(item->name);
    case Term::path:
        return ScriptValue::text(validText(item->path));
    case Term::hidden:
        return ScriptValue::boolean(item->isHidden);
    case Term::kind: {
        const auto facts = FileFacts::of(std::string(withoutTrailingSlashes(item->path)));
        return facts ? filePropertyOf(context(), *facts, Term::kind) : ScriptValue();
    }
    case Term::class_:
        return ScriptValue::type(Term::loginItem);
    default:
        return std::nullopt;
    }
}

std::optional<ObjectAnswer> SystemEventsObjects::userProperty(const WorldObject& of, Term term) {
    const auto user = userRecord(of.name);
    if (!user) {
        return std::nullopt;
    }
    switch (term) {
    case Term::name:
    case Term::fullName:
        return ScriptValue::text(user->name);
    case Term::homeDirectory:
        return itemAt(user->home);
    case Term::class_:
        return ScriptValue::type(Term::user);
    default:
        return std::nullopt;
    }
}

std::optional<ObjectAnswer> SystemEventsObjects::property(const WorldObject& of, Term term) {
    switch (of.kind) {
    case ObjectKind::process:
        return processProperty(of, term);
    case ObjectKind::loginItem:
        return loginItemProperty(of, term);
    case ObjectKind::user:
        return userProperty(of, term);
    case ObjectKind::application:
        if (term == Term::currentUser) {
            return userObject(context().user());
        }
        break;
    case ObjectKind::item:
        break;
    }
    return FileObjects::property(of, term);
}

ScriptValue SystemEventsObjects::reference(const WorldObject& object) {
    switch (object.kind) {
    case ObjectKind::process: {
        const bool isOnlyOne =
            std::ranges::count(processes(), object.name, &RunningProcess::name) == 1;
        return isOnlyOne ? objectSpecifier(Term::applicationProcess, Specifier::Form::name,
                                           ScriptValue::text(validText(object.name)))
                         : objectSpecifier(Term::applicationProcess, Specifier::Form::id,
                                           ScriptValue::integer(object.process));
    }
    case ObjectKind::loginItem:
        return objectSpecifier(Term::loginItem, Specifier::Form::name,
                               ScriptValue::text(object.name));
    case ObjectKind::user:
        return objectSpecifier(Term::user, Specifier::Form::name, ScriptValue::text(object.name));
    default:
        return FileObjects::reference(object);
    }
}

ScriptValue sendToSystemEvents(WorldContext& context, const Specifier& target,
                               const Command& command) {
    SystemEventsObjects model(context);
    if (command.name == Term::make) {
        const ScriptValue* const type = command.parameter(Term::newParameter);
        const bool isLoginItem = type != nullptr && type->is(ScriptValue::Kind::type) &&
                                 type->asTerm() == Term::loginItem;
        if (isLoginItem) {
            return makeFrom(context, model, command);
        }
    }
    if (command.name == Term::deleteItem &&
        removeLoginItems(context, model, objectIn(target, command))) {
        return {};
    }
    return sendToObjects(context, model, target, command);
}

} // namespace qv::applescript::world
