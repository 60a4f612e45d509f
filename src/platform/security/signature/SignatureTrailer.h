#pragma once

#include "platform/security/signature/SignatureFailure.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qv {

/// The signature as it is appended to a program. The file is, in this order: the covered range (the
/// program as it was linked), the code directory, the CMS signature over the code directory's
/// bytes, and a footer of 32 bytes: version (1), length of the directory, length of the CMS, zero,
/// each 32 bits little-endian, then 16 bytes of magic.
struct SignatureTrailer {
    static constexpr std::uint64_t kFooterSize = 32;
    static constexpr std::uint32_t kVersion = 1;
    static constexpr std::uint32_t kLongestPart = 65536;  ///< of the directory and of the CMS
    static constexpr std::uint64_t kShortestProgram = 64; ///< an ELF header
    static constexpr std::string_view kMagic = "~QVCodeSigned!~\n";

    std::uint64_t covered = 0; ///< length of the covered range, which begins at 0
    std::string directory;
    std::string cms;

    /// Reads the trailer of an open file of `size` bytes; only bounds and magic are judged.
    /// Failures: kUnsigned without a footer, kSignatureUnsupported for another version,
    /// kSignatureInvalid for what is out of bounds, covers no ELF file or covers another trailer,
    /// kErrnoBase + errno when reading fails.
    static tl::expected<SignatureTrailer, SignatureFailure> read(int fd, std::uint64_t size);

    /// A file of `size` bytes ends like a trailer, whether or not the rest of it is valid. So does
    /// one that cannot be read.
    [[nodiscard]] static bool isPresent(int fd, off_t size);

    /// The bytes that have to follow the covered range. Both parts must be within kLongestPart.
    [[nodiscard]] std::string encoded() const;

    /// The first bytes of a file are those of the executable and linkable format.
    [[nodiscard]] static bool isELF(std::string_view head) noexcept;
};

} // namespace qv
