#pragma once

#include "platform/applescript/values/OutsideWorld.h"
#include "platform/applescript/world/LoginItems.h"
#include "platform/applescript/world/applications/RunningProcesses.h"
#include "platform/applescript/world/objects/FileObjects.h"

#include <optional>
#include <vector>

namespace qv::applescript::world {

/// The objects of System Events: processes, login items and users besides those of the file system.
class SystemEventsObjects final : public FileObjects {
public:
    explicit SystemEventsObjects(WorldContext& context);

    std::optional<std::vector<WorldObject>> elements(const WorldObject& of, Term type) override;
    std::optional<WorldObject> named(const WorldObject& of, Term type,
                                     const ScriptValue& key) override;
    std::optional<ObjectAnswer> property(const WorldObject& of, Term term) override;
    ScriptValue reference(const WorldObject& object) override;

private:
    [[nodiscard]] static std::optional<ObjectAnswer> processProperty(const WorldObject& of,
                                                                     Term term);
    [[nodiscard]] std::optional<ObjectAnswer> loginItemProperty(const WorldObject& of, Term term);
    [[nodiscard]] static std::optional<ObjectAnswer> userProperty(const WorldObject& of, Term term);
    [[nodiscard]] const std::vector<RunningProcess>& processes();

    std::optional<std::vector<RunningProcess>> processes_; // as long as one command takes
};

[[nodiscard]] ScriptValue sendToSystemEvents(WorldContext& context, const Specifier& target,
                                             const Command& command);

} // namespace qv::applescript::world
