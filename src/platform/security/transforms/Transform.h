#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <string_view>

namespace qv {

/// Makes one value of a block of bytes. Errors are in NSOSStatusErrorDomain, with the cause as
/// their description.
class Transform {
public:
    Transform() = default;
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;
    Transform(Transform&&) = delete;
    Transform& operator=(Transform&&) = delete;
    virtual ~Transform() = default;

    [[nodiscard]] virtual tl::expected<Value, Error> execute(std::string_view input) const = 0;
};

/// The platform's status numbers of transforms.
namespace transform_status {
/// The item that should be a certificate is not one.
inline constexpr std::int64_t kUnknownFormat = -25257;
inline constexpr std::int64_t kDecode = -26275;           ///< a public key that cannot be used
inline constexpr std::int64_t kInvalidSignature = -67688; ///< of no form that the key could make
inline constexpr std::int64_t kInvalidDigestAlgorithm = -67815;
} // namespace transform_status

} // namespace qv
