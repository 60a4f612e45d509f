#pragma once

#include "platform/foundation/plist/PropertyList.h"
#include "support/Repeated.h"
#include "support/ValueDump.h"

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// The result of reading data: its dump, or "refused: REASON" (checks domain and code).
[[nodiscard]] std::string readDump(std::string_view data, const PropertyListLimits& limits = {});

/// The reason of an error, its NSDebugDescription.
[[nodiscard]] std::string reasonOf(const Error& error);

[[nodiscard]] std::string bytes(std::initializer_list<int> values);

/// A binary list of objects given byte by byte.
struct BinaryParts {
    std::vector<std::string> objects;
    std::size_t top = 0;
    std::size_t offsetSize = 1;
    std::size_t referenceSize = 1;
    std::vector<std::size_t> offsets{}; ///< when given, instead of the true ones

    [[nodiscard]] std::string list() const;
};

/// Arrays within each other, with offsets and references of four bytes.
[[nodiscard]] BinaryParts binaryChain(std::size_t depth);

/// Bytes of a number, the greatest first.
[[nodiscard]] std::string bigEndian(std::size_t number, std::size_t size);

} // namespace qv::test
