#pragma once

#include "platform/foundation/digest/SHA256.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/SignatureFailure.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

/// The statements of a signature about a program: a property list (XML or binary) with the keys
/// `format` (1), `identifier`, `team`, `flags`, `digest-algorithm` ("sha256"), `digest` (32 bytes),
/// `covered-length`, and optionally `platform`, `entitlements` (dictionary), `info` (dictionary).
struct CodeDirectory {
    static constexpr std::int64_t kFormat = 1;
    static constexpr int kDeepest = 16; ///< nesting of the property list
    /// The flags that a directory may ask for.
    static constexpr std::uint32_t kFlags =
        code_flags::kHard | code_flags::kKill | code_flags::kCheckExpiration |
        code_flags::kRestrict | code_flags::kRequireLibraryValidation | code_flags::kRuntime;

    std::string identifier; ///< not empty
    std::string team;       ///< not empty
    std::uint32_t flags = 0;
    std::uint32_t platform = 0;
    SHA256Digest digest{}; ///< of the covered range
    std::uint64_t coveredLength = 0;
    Value entitlements = Value::dictionary({}); ///< dictionary
    Value info = Value::dictionary({});         ///< dictionary

    /// Reads the bytes of a directory. Call it only once the signature over them is good: a
    /// property-list reader is more than a stranger should reach. Failures: kBadDictionaryFormat,
    /// kSignatureUnsupported for another format, kUnsupportedDigestAlgorithm.
    static tl::expected<CodeDirectory, SignatureFailure> decode(std::string_view bytes);
    /// The directory as a binary property list.
    [[nodiscard]] tl::expected<std::string, Error> encoded() const;

    /// Whether the entitlement `com.apple.security.get-task-allow` is boolean true: the program may
    /// be debugged.
    [[nodiscard]] bool getTaskAllow() const noexcept;
};

/// The name of a code directory, and so of a signed program: the first 20 bytes of the SHA-256 of
/// its bytes.
[[nodiscard]] std::array<std::uint8_t, 20> codeDirectoryHash(std::string_view bytes);

} // namespace qv
