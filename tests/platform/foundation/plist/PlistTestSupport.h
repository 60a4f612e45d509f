#pragma once

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Value.h"

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qv::test {

/// A value on one line, every kind to be told from every other: `{a: 1, b: [r0.5, "x", <0fa0>]}`.
[[nodiscard]] std::string dump(const Value& value);

/// What a reader made of data: its dump, or "refused: REASON" (checks domain and code).
[[nodiscard]] std::string readDump(std::string_view data, const PropertyListLimits& limits = {});

/// The reason of an error, its NSDebugDescription.
[[nodiscard]] std::string reasonOf(const Error& error);

[[nodiscard]] std::string repeated(std::string_view piece, std::size_t count);
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

/// Bytes of a number, the greatest first.
[[nodiscard]] std::string bigEndian(std::size_t number, std::size_t size);

} // namespace qv::test
