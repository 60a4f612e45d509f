#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string_view>

namespace qv {

/// Reads keyed archives (KeyedArchiver.h) whoever wrote them, binary or XML.
class KeyedUnarchiver {
public:
    /// The object under "root" in `$top`, and nothing that it does not refer to. An object that
    /// several others refer to is the same Value for all of them.
    ///
    /// Understood are NSString, NSNumber, NSData, NSArray, NSSet, NSCountedSet (as the set of its
    /// members), NSDictionary (a number as a key gives its text), NSDate, NSNull, NSURL (with a
    /// base: the URL that it resolves to), NSUUID (its upper-case text) and NSError, with their
    /// mutable forms, which give the same as the immutable ones. A class is taken by its name, else
    /// by the first of its superclasses, then of its hints, that is understood. A date may stand as
    /// it is, without a class, and an integer where a real belongs.
    ///
    /// For data from anywhere: time and memory are linear in its length, nothing recurses, and
    /// objects may nest 512 deep. Every refusal is in NSCocoaErrorDomain, 4864, with an
    /// NSDebugDescription of what is wrong and where ("object 7: ..."): data that is not a property
    /// list, a part missing or of the wrong kind, a reference to an object that is not there, an
    /// object within itself, a class that is not understood, no object (nil) where there must be
    /// one, and a dictionary key that is neither string nor number or comes twice. A class that is
    /// not understood is named in each refusal of its objects.
    [[nodiscard]] static tl::expected<Value, Error> unarchiveObjectWithData(std::string_view data);
};

} // namespace qv
