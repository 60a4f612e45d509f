#pragma once

#include "platform/foundation/archive/ArchiveClass.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstdint>

namespace qv {

/// True for the classes whose objects refer to no others.
[[nodiscard]] bool isInline(ArchiveClass type) noexcept;

/// The value of such an object, of the number `index`, from the dictionary that stands for it.
[[nodiscard]] tl::expected<Value, Error> inlineObject(std::uint32_t index, ArchiveClass type,
                                                      const Value& element);

} // namespace qv
