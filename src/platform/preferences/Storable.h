#pragma once

#include "platform/foundation/values/Value.h"

#include <initializer_list>
#include <optional>
#include <string>

namespace qv::preferences {

/// The first value of one of these kinds in a tree and the keys and indexes that lead to it, as
/// "NSNull at KEY[3].other". Time and memory are linear in the containers that there are, however
/// often they are shared.
[[nodiscard]] std::optional<std::string> findKinds(const Value& root,
                                                   std::initializer_list<Value::Kind> kinds);

} // namespace qv::preferences
