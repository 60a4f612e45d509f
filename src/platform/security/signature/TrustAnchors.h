#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/security/guarded/WatchedPaths.h"

#include <tl/expected.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>

using X509_STORE = struct x509_store_st;

namespace qv {

/// The certificates and revocations that an administrator laid down, as they were at one moment.
/// Immutable; an empty set (nobody is trusted) tells why in `reason`.
class AnchorSet {
public:
    using Digest = std::array<std::uint8_t, 32>;
    struct Roles {
        bool vendor = false;   ///< roots that satisfy `anchor apple generic`
        bool platform = false; ///< roots whose code may satisfy `anchor apple`
        bool trusted = false;  ///< satisfies `anchor trusted`
    };

    /// Roles of the certificate with this SHA-256; none without any.
    [[nodiscard]] std::optional<Roles> roles(const Digest& certificate) const;
    /// Returns true if this is on the revocation list: the SHA-256 of a certificate (32 bytes) or a
    /// code directory hash (20 bytes).
    [[nodiscard]] bool isRevoked(std::string_view digest) const;
    /// Holds the roots at which a chain may end; never null. Stays with this object.
    [[nodiscard]] X509_STORE* store() const noexcept { return store_.get(); }
    /// Differs between sets of different content.
    [[nodiscard]] const Digest& fingerprint() const noexcept { return fingerprint_; }
    /// The reason why nobody is trusted, in words with the place; empty when somebody is.
    [[nodiscard]] const std::string& reason() const noexcept { return reason_; }

    /// The encoding for another process, as a property list; reads back as a set with the same
    /// fingerprint.
    [[nodiscard]] Value encoded() const;
    /// The error says what is wrong.
    static tl::expected<std::shared_ptr<const AnchorSet>, std::string>
    decoded(const Value& encoding);

private:
    friend class AnchorSetBuilder;
    AnchorSet() = default;

    struct StoreReleaser {
        void operator()(X509_STORE* store) const noexcept;
    };
    std::map<Digest, Roles> roles_;
    std::map<Digest, std::string> certificates_; // in DER, those of roles_
    std::set<std::string, std::less<>> revoked_;
    std::unique_ptr<X509_STORE, StoreReleaser> store_;
    Digest fingerprint_{};
    std::string reason_;
};

/// The folder of trust anchors:
///
///     vendor/ platform/ trusted/   certificates in PEM; those of vendor/ and platform/ are
///                                  self-signed authorities. trusted/ may mark others as well:
///                                  they count in chains that end at an anchor.
///     revoked                      one digest a line in hexadecimal: SHA-256 of a certificate (64
///                                  digits) or a code directory hash (40); # begins a comment
///
/// Nothing else may lie there, and the rules of GuardedFiles hold. Any violation, and nobody is
/// trusted: half a folder of anchors could lack just the revocation that matters.
///
/// May be used from several threads at once.
class TrustAnchors {
public:
    using Clock = WatchedContent<AnchorSet>::Clock;

    TrustAnchors() : TrustAnchors({}, 0) {} ///< no folder: nobody is trusted
    /// `folder` is absolute. `allowedOwner` may own it besides root; a service passes 0.
    TrustAnchors(std::string folder, uid_t allowedOwner,
                 Clock clock = std::chrono::system_clock::now);

    /// The anchors as they are now.
    [[nodiscard]] std::shared_ptr<const AnchorSet> current() const;
    /// The reason why nobody is trusted at present; empty when somebody is.
    [[nodiscard]] std::string reason() const { return current()->reason(); }

private:
    std::string folder_;
    uid_t allowedOwner_ = 0;
    WatchedContent<AnchorSet> set_;
};

} // namespace qv
