#pragma once

#include "platform/applescript/values/ScriptError.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::applescript {

/// A command with its parameters, evaluated.
struct Command {
    Term name = Term::none;
    ScriptValue direct = {};
    bool hasDirect = false;
    std::vector<std::pair<Term, ScriptValue>> parameters = {};
    /// The time that the command may take: `with timeout`, two minutes without. A shell command, a
    /// dialog and a delay are limited by the time of the whole script alone.
    std::chrono::milliseconds timeout = std::chrono::minutes(2);

    /// Returns null if it is not given.
    [[nodiscard]] const ScriptValue* parameter(Term label) const noexcept {
        for (const auto& [name_, value] : parameters) {
            if (name_ == label) {
                return &value;
            }
        }
        return nullptr;
    }
};

/// All that a script can reach beyond its own values. A test puts another world in its place.
/// Each function throws a ScriptError; the caller adds the range of the source.
class OutsideWorld {
public:
    OutsideWorld() = default;
    OutsideWorld(const OutsideWorld&) = delete;
    OutsideWorld& operator=(const OutsideWorld&) = delete;
    OutsideWorld(OutsideWorld&&) = delete;
    OutsideWorld& operator=(OutsideWorld&&) = delete;
    virtual ~OutsideWorld() = default;

    /// A command of the scripting additions (Dictionary::additions).
    virtual ScriptValue perform(const Command& command) = 0;
    /// A command to an application or to objects of it, such as `quit`, `delete`, `exists`, `get`.
    /// Objects are in `command.direct`; `target` is whom the script tells, down to the object. A
    /// request about a file that the script holds begins with a step of the form `name` whose key
    /// is that file. `as` of a `get` says the class that an object is wanted as.
    virtual ScriptValue send(const Specifier& target, const Command& command) = 0;
    /// `set PROPERTY of OBJECT to VALUE`.
    virtual void set(const Specifier& object, const ScriptValue& value) = 0;
    /// Words told to an application that belong to no dictionary here: -1728 if the
    /// application is missing, else -1708.
    [[noreturn]] virtual void refuse(const Specifier& target, std::string_view words) = 0;

    /// `Startup Disk:Applications:` for /Applications/, and back. The first name of a path with
    /// colons is a volume; one that is not mounted stands for the root.
    virtual std::string colonPath(std::string_view posixPath) = 0;
    virtual std::string posixPath(std::string_view colonPath) = 0;
    /// Whether something is there, links not followed; a folder if the path ends in a slash.
    virtual bool fileExists(const std::string& posixPath) = 0;
    /// Seconds since 1970 on the local clock.
    virtual double now() = 0;
};

} // namespace qv::applescript
