#pragma once

#include "platform/foundation/plist/PropertyList.h"

#include <cstdlib>

namespace qv::fuzz {

/// Ends the run: the fuzzer keeps the input.
inline void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

/// A refusal must be the reader's own.
inline void requireOwn(const Error& error) {
    require(error.domain() == error_domain::kCocoa && error.code() == 3840);
}

/// A tree that was read is written so that it reads back as the same: to the byte, as a
/// not-a-number equals nothing.
inline void requireRoundTrip(const Value& root, PropertyListFormat format) {
    const auto written = PropertyList::dataWithPropertyList(root, format);
    if (!written) { // XML holds less than a binary list
        require(format == PropertyListFormat::xml && written.error().code() == 3852);
        return;
    }
    const auto again = PropertyList::propertyListWithData(*written);
    require(again.has_value() && again->format == format);
    require(PropertyList::dataWithPropertyList(again->root, format) == written);
}

} // namespace qv::fuzz
