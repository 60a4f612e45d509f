#pragma once

#include "platform/security/transforms/CryptoLibrary.h"
#include "platform/security/transforms/Transform.h"

#include <string>

namespace qv {

/// Gives the digest of its input as data.
class DigestTransform final : public Transform {
public:
    /// `type` is the name of a digest, in any case: MD5, SHA1, SHA256, SHA3-512, BLAKE2b512 ... An
    /// unknown name is an error of `execute`.
    explicit DigestTransform(std::string_view type);

    [[nodiscard]] tl::expected<Value, Error> execute(std::string_view input) const override;
    /// The digest of all bytes of a regular file, read from its begin in pieces: memory does not
    /// grow with the file, and one that shrinks meanwhile does no harm. Anything but a regular file
    /// is refused (NSPOSIXErrorDomain, EISDIR or EINVAL), since it may have no end.
    [[nodiscard]] tl::expected<Value, Error> executeOnFile(const std::string& path) const;

private:
    [[nodiscard]] Error refusal() const;
    std::string type_;
    DigestHandle digest_;
};

} // namespace qv
