#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/applescript/world/objects/FileObjects.h"

#include <string>
#include <vector>

namespace qv::applescript::world {

/// The commands of Finder and System Events to items of the file system. Results are references to
/// the items where they are then, one or a list. Errors are in the name of the model's application.
///
/// Nothing is removed but what `emptyTrash` finds in the trash: a deleted and a replaced item go
/// there.
class ItemCommands {
public:
    ItemCommands(WorldContext& context, FileObjects& model) : context_(&context), model_(&model) {}

    ScriptValue trash(const Command& command);
    ScriptValue move(const Command& command);
    ScriptValue duplicate(const Command& command);
    /// `make new folder`, `file` or `alias file`.
    ScriptValue make(const Command& command);
    /// `set name of` an item.
    void rename(const WorldObject& item, const ScriptValue& name);
    /// Empties the trash of the effective user.
    void emptyTrash();

private:
    using Operation = void (ItemCommands::*)(const std::string& from, const std::string& to);

    [[nodiscard]] std::string application() const { return model_->applicationName(); }
    [[nodiscard]] std::vector<std::string> pathsIn(const ScriptValue& value);
    [[nodiscard]] std::string folderIn(const ScriptValue& value);
    [[nodiscard]] ScriptValue referencesTo(const std::vector<std::string>& paths, bool isList);
    [[nodiscard]] std::string trashItem(const std::string& path);
    /// Carries an item to a folder, over what has its name there where `replaces` says so.
    [[nodiscard]] std::string carry(const std::string& from, const std::string& to, bool replaces,
                                    Operation operation);
    void moveOne(const std::string& from, const std::string& to);
    void copyOne(const std::string& from, const std::string& to);
    void makeOne(Term type, const std::string& path, const Command& command);

    WorldContext* context_;
    FileObjects* model_;
};

} // namespace qv::applescript::world
