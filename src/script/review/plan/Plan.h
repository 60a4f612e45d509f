#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "platform/preferences/DomainPlace.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qv {

struct RuleServices;

/// The certainty of a prediction.
enum class Certainty : std::uint8_t {
    exact,   ///< it happens so, unless somebody else changes the machine first
    depends, ///< on what cannot be known before: an opaque step, an unreadable folder
    opaque,  ///< the step runs a program, which may do anything
};

enum class PlannedOutcome : std::uint8_t {
    changes,    ///< something is another than before
    unchanged,  ///< succeeds, and nothing is another than before
    skipped,    ///< in a branch that is not taken, or an unknown code
    fails,      ///< with `error`
    raises,     ///< a fault of the script that stops it, whatever the error behaviour; `reason`
    runs,       ///< a program, with an unknown outcome
    notReached, ///< a step before has stopped the script
};

/// The visible state of an item. A link is an item itself.
struct ItemState {
    enum class Type : std::uint8_t { file, folder, link, other, unknown };
    Type type = Type::file;
    std::uint32_t user = 0;
    std::uint32_t group = 0;
    mode_t mode = 0;    ///< permission bits
    std::string target; ///< of a link

    friend bool operator==(const ItemState&, const ItemState&) = default;
};

/// The effect of a step on one item. Neither `before` nor `after`: its dates, or a value in a file.
struct PlannedEffect {
    std::string path;
    std::optional<ItemState> before; ///< none: it is made
    std::optional<ItemState> after;  ///< none: it goes away
    std::string note;                ///< "moved to /opt/b", "dates", "value: 1 -> 2"
};

struct PlannedStep {
    Certainty certainty = Certainty::exact;
    PlannedOutcome outcome = PlannedOutcome::unchanged;
    bool stopsScript = false;
    std::uint32_t depth = 0; ///< of the blocks that it stands in
    Error error;             ///< of a failure
    /// The reason why it is not exact, or the exception that it raises; a phrase.
    std::string reason;
    std::optional<bool> holds;          ///< of an if; none when that is not known
    std::vector<PlannedEffect> effects; ///< the first ones
    std::size_t effectCount = 0;        ///< of all
};

/// An item that a script leaves.
struct LeftItem {
    std::string path;
    ItemState state;         ///< `unknown` where that is not sure
    std::string contentFrom; ///< where the disk has the same content now; empty: there is none
};

struct Plan {
    std::vector<PlannedStep> steps;     ///< one for each step
    std::optional<std::size_t> stopsAt; ///< the step that certainly stops the script
    /// An item and all below it; an `unknown` one may have anything below it.
    std::function<std::vector<LeftItem>(const std::string& path)> itemsFrom;
};

struct PlanOptions {
    std::string root;           ///< of a copy of another machine's files; empty: this one
    std::string trashOwnerHome; ///< root's home, where its trash is
    std::shared_ptr<const RuleServices> services;     ///< the services that rules ask
    std::optional<PreferenceEnvironment> preferences; ///< of root; none: not to be read
    bool asRoot = false;                              ///< the caller sees what the service sees
    std::size_t mostEffects = 10;                     ///< the most effects that a step keeps
};

/// Predicts the effects of a script's steps, an array. Looks at the machine and changes nothing.
/// Never throws for what is in the steps.
[[nodiscard]] Plan planOf(const Value& steps, const PlanOptions& options);

} // namespace qv
