#pragma once

#include "platform/applescript/language/Tree.h"
#include "platform/applescript/running/Bounds.h"
#include "platform/applescript/values/OutsideWorld.h"

#include <cstdint>
#include <vector>

namespace qv::applescript {

/// An operation depends on these besides its operands.
struct Context {
    OutsideWorld& world;
    Bounds& bounds; ///< to be asked wherever a value decides how long something takes
    std::uint8_t attention = Attention::kUsual; ///< bits, as `considering` and `ignoring` set them
    /// `text item delimiters`, and their texts.
    ScriptValue delimiters = ScriptValue::list({ScriptValue::text("")});
    std::vector<ScriptValue> delimiterTexts = {ScriptValue::text("")};

    [[nodiscard]] bool considers(std::uint8_t bit) const noexcept { return (attention & bit) != 0; }
};

/// The depth down to which nested values are compared, copied and joined; -2706 below.
inline constexpr unsigned kDeepestValue = 500;

} // namespace qv::applescript
