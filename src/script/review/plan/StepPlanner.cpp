#include "script/review/plan/StepPlanner.h"

#include "platform/foundation/files/item/FileSystemPath.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Exception.h"
#include "script/QVCatalogScript.h"
#include "script/operations/Fields.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>

namespace qv {

namespace {

using enum FieldKind;

/// One step on its way through a state.
class StepPlanner {
public:
    StepPlanner(PlanState& state, const Operation& operation, const StepFields& fields,
                const PlanOptions& options, PlannedStep& line)
        : state_(state), operation_(operation), fields_(fields), options_(options), line_(line),
          effects_(options.mostEffects), steps_(state.files, effects_, options.trashOwnerHome) {}

    void plan() {
        state_.files.beginStep();
        Error error = missingURL();
        line_.error = error ? error : perform();
        line_.effectCount = effects_.count();
        line_.effects = effects_.take();
        if (line_.outcome == PlannedOutcome::unchanged) {
            line_.outcome = line_.error              ? PlannedOutcome::fails
                            : line_.effectCount != 0 ? PlannedOutcome::changes
                                                     : PlannedOutcome::unchanged;
        }
        judge();
    }

private:
    [[nodiscard]] std::optional<URL> url(const Field& field) const {
        return fields_.get<item>(field.key);
    }
    [[nodiscard]] bool flag(const Field& field) const {
        return fields_.get<FieldKind::flag>(field.key);
    }
    [[nodiscard]] std::optional<Value> value(const Field& field) const {
        return fields_.get<FieldKind::value>(field.key);
    }
    [[nodiscard]] PlannedItem named(const Field& field) { return {state_.files, url(field)}; }

    [[nodiscard]] Error missingURL() const {
        for (const Field& field : operation_.fields) {
            if (field.kind == item && !url(field)) {
                return urlError(field.key, fields_[field.key]);
            }
        }
        return {};
    }

    Error perform() {
        using namespace field;
        switch (operation_.code) {
        case OperationCode::removeItemAtURL:
            return steps_.remove(named(kItem));
        case OperationCode::trashItemAtURL:
            return steps_.trash(named(kItem));
        case OperationCode::moveItemFromURL:
            return steps_.move(named(kFrom), named(kTo), flag(kAdapt));
        case OperationCode::copyItemFromURL:
            return steps_.copy(named(kFrom), named(kTo), flag(kAdapt), flag(kAtomic));
        case OperationCode::replaceItemAtURL:
            return steps_.replace(*url(kOldItem), *url(kNewItem));
        case OperationCode::touchItemAtURL:
            return steps_.touch(named(kItem));
        case OperationCode::saveOwnerAndGroupOfURL:
            return saveOwner();
        case OperationCode::applyOwnerAndGroupOfURL:
            return applyOwner();
        case OperationCode::changeOwnershipOfItem:
            return steps_.changeOwner(named(kItem), fields_.get<userID>(kUserID.key),
                                      fields_.get<groupID>(kGroupID.key), flag(kIDsRecursive));
        case OperationCode::changeModeOfItem:
            return steps_.changeMode(named(kItem), fields_.get<mode>(kMode.key),
                                     flag(kModeRecursive));
        case OperationCode::setPreferencesForApplicationID:
            return setPreference();
        case OperationCode::makeProcessAXTrusted:
            state_.files.noteDoubt("the store of trusted programs is not looked at");
            line_.outcome = PlannedOutcome::changes;
            return {};
        case OperationCode::executeTool:
            return runTool();
        case OperationCode::launchApplicationAtURL:
            return runAnything();
        case OperationCode::executeAppleScript:
            checkField(kAppleScript, value(kAppleScript));
            return value(kAppleScript) ? runAnything() : Error();
        default:
            return setVariable();
        }
    }

    Error setVariable() {
        using namespace field;
        switch (operation_.code) {
        case OperationCode::setErrorHandlingBehaviour:
            state_.behaviour = fields_.get<errorBehaviour>(kErrorBehaviour.key);
            break;
        case OperationCode::setKeyValueStorage:
            state_.storage = KeyValueStorage(value(kStorage));
            state_.isStorageSure = true;
            break;
        default: // nothing that the service notices
            break;
        }
        return {};
    }

    Error saveOwner() {
        SavedOwner owner;
        if (Error error = steps_.readOwner(named(field::kItemToSave), owner.user, owner.group)) {
            return error;
        }
        checkField(field::kSaveAs, value(field::kSaveAs));
        state_.storage.setObject(owner.asEntry(), *value(field::kSaveAs));
        state_.isStorageSure = state_.isStorageSure && state_.files.doubt().empty();
        return {};
    }

    Error applyOwner() {
        const std::optional<Value> identifier = value(field::kSavedAs);
        if (!state_.isStorageSure) {
            state_.files.noteDoubt("the saved owners are not known");
        }
        const Value* saved = identifier ? state_.storage.objectForKey(*identifier) : nullptr;
        if (saved == nullptr) {
            return Error::withDescription(kCatalogScriptErrorDomain, 0, "saveID doesn't exist");
        }
        const SavedOwner owner = SavedOwner::from(*saved);
        return steps_.changeOwner(named(field::kItemToOwn), owner.user, owner.group,
                                  flag(field::kOwnerRecursive));
    }

    Error setPreference() {
        const auto text = [&](const Field& field) {
            const std::optional<Value> given = value(field);
            checkField(field, given);
            return given ? std::optional(std::string(given->asString())) : std::nullopt;
        };
        PlannedPreference preference;
        preference.domain = {text(field::kApplication), text(field::kUser), text(field::kHost)};
        preference.key = text(field::kPreferenceKey);
        preference.value = value(field::kPreference);
        const bool fails = failsToSet(preference, options_.preferences, state_.preferences,
                                      state_.files, effects_);
        return fails ? Error::withDescription(kCatalogScriptErrorDomain, 0,
                                              "Could net set preferences")
                     : Error();
    }

    Error runAnything() {
        line_.outcome = PlannedOutcome::runs;
        return {};
    }

    // A tool that is not there is a fault of the script, and so are arguments of another class.
    Error runTool() {
        const std::optional<Value> tool = value(field::kTool);
        checkField(field::kTool, tool);
        const std::string path(tool->asString());
        const auto held = path.starts_with('/') ? state_.files.hold(path, LastLink::follow)
                                                : tl::expected<Location, int>();
        const std::optional<Value> arguments = value(field::kArguments);
        checkField(field::kArguments, arguments);
        if (arguments && !arguments->isNull()) {
            for (const Value& argument : arguments->asArray()) {
                if (!argument.is(Value::Kind::string)) {
                    refuseField(field::kArguments.key, infoOf(field::kArguments.kind).wanted,
                                &argument);
                }
            }
        }
        const bool isGone = !held && (held.error() == ENOENT || held.error() == ELOOP);
        if (isGone && state_.files.doubt().empty()) {
            throw Exception(std::string(exception_name::kInvalidArgument),
                            fmt::format("launch path not accessible: {}: {}", path,
                                        std::strerror(held.error())));
        }
        return runAnything();
    }

    // Sets the certainty of the line, and of later steps.
    void judge() {
        SimulatedFiles& files = state_.files;
        const std::string doubt = files.doubt();
        const bool isAstray = files.isAstray();
        state_.hasChanged = state_.hasChanged || line_.effectCount != 0 || !doubt.empty();
        state_.lastFailed = static_cast<bool>(line_.error);
        if (line_.outcome == PlannedOutcome::runs) {
            line_.certainty = Certainty::opaque;
            line_.reason = "it may do anything";
            state_.ranProgram = state_.hasChanged = true;
            state_.lastFailed.reset();
            state_.preferences.clear();
            files.makeUncertain({});
        } else if (!doubt.empty()) {
            line_.certainty = Certainty::depends;
            line_.reason = doubt;
            state_.lastFailed.reset();
            state_.preferences.clear();
            forget(isAstray);
        } else {
            forgetPreferencesBelow();
        }
    }

    [[nodiscard]] bool changesTrees() const {
        switch (operation_.code) {
        case OperationCode::moveItemFromURL:
        case OperationCode::copyItemFromURL:
        case OperationCode::replaceItemAtURL:
        case OperationCode::applyOwnerAndGroupOfURL:
        case OperationCode::changeOwnershipOfItem:
        case OperationCode::changeModeOfItem:
            return true;
        default:
            return false;
        }
    }

    // Forgets all facts that the step may have changed.
    void forget(bool isAstray) {
        SimulatedFiles& files = state_.files;
        const bool isTrashed = operation_.code == OperationCode::trashItemAtURL ||
                               operation_.code == OperationCode::replaceItemAtURL;
        std::vector<Location> doubtful;
        bool isEverything = isAstray;
        for (const Field& each : operation_.fields) {
            if (each.kind != item || !url(each)) {
                continue;
            }
            PlannedItem item = named(each);
            const tl::expected<Location, Error> held = item.hold(LastLink::follow);
            if (held) {
                doubtful.push_back(*held);
                isEverything = isEverything || (changesTrees() && files.factsAt(*held).hasLinks);
            }
            if (item.place()) {
                doubtful.push_back(*item.place());
                if (isTrashed || operation_.code == OperationCode::copyItemFromURL) {
                    doubtful.back().pop_back(); // an archive's, or a temporary copy's folder
                }
            }
        }
        const auto home = files.hold(options_.trashOwnerHome, LastLink::follow);
        if (isTrashed && home) {
            doubtful.push_back(*home);
        }
        if (isEverything) {
            doubtful = {{}};
        }
        for (const Location& location : doubtful) {
            files.makeUncertain(location);
        }
    }

    void forgetPreferencesBelow() {
        for (const Field& each : operation_.fields) {
            const bool isItem = each.kind == item && url(each).has_value();
            PlannedItem item = isItem ? named(each) : PlannedItem(state_.files, std::nullopt);
            const std::string path = item.place() ? pathOf(*item.place()) : "";
            std::erase_if(state_.preferences, [&](const auto& stored) {
                return !path.empty() && stored.first.first.starts_with(path);
            });
        }
    }

    PlanState& state_;
    const Operation& operation_;
    const StepFields& fields_;
    const PlanOptions& options_;
    PlannedStep& line_;
    EffectList effects_;
    FileSteps steps_;
};

} // namespace

void PlanState::joinWith(PlanState& other) {
    files.joinWith(other.files);
    const bool agreesOnStorage = isStorageSure && other.isStorageSure &&
                                 storage.value().has_value() == other.storage.value().has_value() &&
                                 (!storage.value() || *storage.value() == *other.storage.value());
    isStorageSure = agreesOnStorage;
    behaviour = behaviour == other.behaviour ? behaviour : std::nullopt;
    lastFailed = lastFailed == other.lastFailed ? lastFailed : std::nullopt;
    if (preferences != other.preferences) {
        preferences.clear();
    }
    hasChanged = hasChanged || other.hasChanged;
    ranProgram = ranProgram || other.ranProgram;
}

void planStep(PlanState& state, const Operation& operation, const StepFields& fields,
              const PlanOptions& options, PlannedStep& line) {
    StepPlanner(state, operation, fields, options, line).plan();
}

} // namespace qv
