#pragma once

#include "platform/applescript/world/context/WorldContext.h"
#include "platform/applescript/world/objects/FileAnswers.h"
#include "platform/applescript/world/objects/Objects.h"

#include <optional>
#include <string>
#include <vector>

namespace qv::applescript::world {

/// The disks, folders and files as objects: of Finder, of System Events, and of no application
/// where a script asks for a property of a file.
class FileObjects : public ObjectModel {
public:
    struct Manner {
        std::string application;  ///< the application that errors name
        bool showsHidden = false; ///< elements of folders include names that begin with a dot
        Term relativeTo = Term::desktop; ///< the folder of an item that has only a name
    };
    FileObjects(WorldContext& context, Manner manner)
        : context_(&context), manner_(std::move(manner)) {}

    [[nodiscard]] std::string applicationName() const override { return manner_.application; }
    std::optional<std::vector<WorldObject>> elements(const WorldObject& of, Term type) override;
    std::optional<WorldObject> named(const WorldObject& of, Term type,
                                     const ScriptValue& key) override;
    std::optional<ObjectAnswer> property(const WorldObject& of, Term term) override;
    /// `folder "Startup Disk:etc:" of application "Finder"`; a file is meant if the tell has no
    /// application.
    ScriptValue reference(const WorldObject& object) override;
    [[nodiscard]] static ScriptValue fileValue(const WorldObject& item);

protected:
    [[nodiscard]] WorldContext& context() noexcept { return *context_; }

private:
    [[nodiscard]] std::string pathOfKey(const WorldObject& of, const ScriptValue& key);
    [[nodiscard]] std::optional<ObjectAnswer> applicationProperty(Term term);

    WorldContext* context_;
    Manner manner_;
};

} // namespace qv::applescript::world
