#pragma once

#include "platform/security/transforms/Transform.h"

#include <string>

namespace qv {

/// Tells, as a boolean, whether a signature over its input was made with the private key that
/// belongs to a certificate: over the SHA-1 digest, padded by PKCS#1 v1.5 for RSA keys. Neither the
/// certificate's dates nor who issued it are looked at.
class VerifyTransform final : public Transform {
public:
    /// `certificate` is X.509 in DER; one that cannot be read is an error of `execute`.
    VerifyTransform(std::string_view signature, std::string_view certificate);
    [[nodiscard]] tl::expected<Value, Error> execute(std::string_view input) const override;

private:
    std::string signature_;
    std::string certificate_;
};

} // namespace qv
