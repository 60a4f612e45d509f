#pragma once

#include "platform/applescript/values/ScriptError.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <variant>
#include <vector>

namespace qv::applescript::world {

/// An object of an application.
struct WorldObject {
    enum class Kind : std::uint8_t {
        application, ///< the one that is told
        item,        ///< of the file system, at `path`
        process,     ///< `process`, called `name`
        loginItem,   ///< called `name`, stated by the file at `path`
        user,        ///< called `name`
    };
    Kind kind = Kind::application;
    std::string path = {};
    std::string name = {};
    pid_t process = 0;
};

/// An item of the file system, without the slash that a folder's path may end in.
[[nodiscard]] WorldObject itemAt(std::string_view path);

using ObjectAnswer = std::variant<ScriptValue, WorldObject>;

/// The objects of an application, and what is to be known of them.
class ObjectModel {
public:
    ObjectModel() = default;
    ObjectModel(const ObjectModel&) = delete;
    ObjectModel& operator=(const ObjectModel&) = delete;
    ObjectModel(ObjectModel&&) = delete;
    ObjectModel& operator=(ObjectModel&&) = delete;
    virtual ~ObjectModel() = default;

    /// The application that errors name; may be empty.
    [[nodiscard]] virtual std::string applicationName() const = 0;
    /// Returns all elements of a class; none if there can be none.
    virtual std::optional<std::vector<WorldObject>> elements(const WorldObject& of, Term type) = 0;
    /// The element of a name, or of a file value or number that stands for one; none if there is
    /// none.
    virtual std::optional<WorldObject> named(const WorldObject& of, Term type,
                                             const ScriptValue& key) = 0;
    /// Returns nothing for a property that the object lacks.
    virtual std::optional<ObjectAnswer> property(const WorldObject& of, Term term) = 0;
    /// The object as a script holds it.
    virtual ScriptValue reference(const WorldObject& object) = 0;
};

/// The answer that a specifier leads to: one, or as many as there are.
struct Answers {
    bool isList = false;
    std::vector<ObjectAnswer> each;
};

/// Resolves a specifier from its application down to the object; -1728 for an object that does not
/// exist, -1719 for an index.
[[nodiscard]] Answers resolve(ObjectModel& model, const Specifier& specifier);
/// The same as a value: objects are references.
[[nodiscard]] ScriptValue valueOf(ObjectModel& model, const Answers& answers);
[[nodiscard]] ScriptValue valueOf(ObjectModel& model, const ObjectAnswer& answer);
/// The objects that a direct object stands for: a specifier, a file, or a list of those.
[[nodiscard]] std::vector<WorldObject> objectsIn(ObjectModel& model, const ScriptValue& value);

/// Whether a condition of `whose` holds of an object. A property that the object does not have is
/// missing value.
[[nodiscard]] bool holds(ObjectModel& model, const Specifier::Filter& filter,
                         const WorldObject& object);

/// Describes an object: `process "x" of application "X"`.
[[nodiscard]] std::string described(const Specifier& specifier);

} // namespace qv::applescript::world
