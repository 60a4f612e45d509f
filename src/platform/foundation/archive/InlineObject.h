#pragma once

#include "platform/foundation/archive/ArchiveClass.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string>

namespace qv {

/// Returns true for the classes whose objects refer to no others.
[[nodiscard]] bool isInline(ArchiveClass type) noexcept;

/// The value of such an object from the dictionary that stands for it, or what is wrong with that.
[[nodiscard]] tl::expected<Value, std::string> inlineObject(ArchiveClass type,
                                                            const Value& element);

} // namespace qv
