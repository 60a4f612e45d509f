#include "platform/security/signature/SignatureTrailer.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>

#include <array>

namespace qv {

namespace {

using Footer = std::array<char, SignatureTrailer::kFooterSize>;

std::uint32_t littleEndian32(const Footer& footer, std::size_t at) noexcept {
    std::uint32_t number = 0;
    for (std::size_t index = 4; index-- > 0;) {
        number = (number << 8) | static_cast<unsigned char>(footer[at + index]);
    }
    return number;
}

void appendLittleEndian32(std::string& out, std::uint32_t number) {
    for (int shift = 0; shift < 32; shift += 8) {
        out += static_cast<char>((number >> shift) & 0xFFU);
    }
}

bool hasMagic(const Footer& footer) noexcept {
    return std::string_view(footer.data(), footer.size()).ends_with(SignatureTrailer::kMagic);
}

// The covered range by itself: an ELF file that carries no trailer of its own.
tl::expected<void, SignatureFailure> judgeCovered(int fd, std::uint64_t covered) {
    std::array<char, 4> head{};
    if (const int error = readExactly(fd, 0, head); error != 0) {
        return unreadableProgram(error);
    }
    if (!SignatureTrailer::isELF({head.data(), head.size()})) {
        return invalidSignature("the signed range is no ELF file");
    }
    Footer inner{};
    if (const int error = readExactly(fd, covered - inner.size(), inner); error != 0) {
        return unreadableProgram(error);
    }
    if (hasMagic(inner)) {
        return invalidSignature("the signed range ends in another signature trailer");
    }
    return {};
}

} // namespace

bool SignatureTrailer::isELF(std::string_view head) noexcept {
    return head.starts_with("\x7f"
                            "ELF"); // two literals: E and F are digits
}

bool SignatureTrailer::isPresent(int fd, off_t size) {
    Footer footer{};
    const auto end = static_cast<std::uint64_t>(size);
    return end >= kFooterSize &&
           (readExactly(fd, end - kFooterSize, footer) != 0 || hasMagic(footer));
}

tl::expected<SignatureTrailer, SignatureFailure> SignatureTrailer::read(int fd,
                                                                        std::uint64_t size) {
    if (size < kFooterSize) {
        return signatureFailure(codesign_status::kUnsigned, "the program is not signed");
    }
    Footer footer{};
    if (const int error = readExactly(fd, size - kFooterSize, footer); error != 0) {
        return unreadableProgram(error);
    }
    if (!hasMagic(footer)) {
        return signatureFailure(codesign_status::kUnsigned, "the program is not signed");
    }
    if (const std::uint32_t version = littleEndian32(footer, 0); version != kVersion) {
        return signatureFailure(codesign_status::kSignatureUnsupported,
                                fmt::format("signature trailer of version {}", version));
    }
    if (littleEndian32(footer, 12) != 0) {
        return invalidSignature("the reserved field of the signature trailer is not zero");
    }
    const std::uint32_t directoryLength = littleEndian32(footer, 4);
    const std::uint32_t cmsLength = littleEndian32(footer, 8);
    if (directoryLength == 0 || directoryLength > kLongestPart || cmsLength == 0 ||
        cmsLength > kLongestPart) {
        return invalidSignature(
            fmt::format("code directory of {} bytes and signature of {} bytes: each must "
                        "have 1 to {}",
                        directoryLength, cmsLength, kLongestPart));
    }
    const std::uint64_t appended = std::uint64_t{directoryLength} + cmsLength + kFooterSize;
    if (appended > size || size - appended < kShortestProgram) {
        return invalidSignature("the signature trailer leaves no room for a program");
    }
    SignatureTrailer trailer;
    trailer.covered = size - appended;
    if (auto fine = judgeCovered(fd, trailer.covered); !fine) {
        return tl::unexpected(fine.error());
    }
    trailer.directory.resize(directoryLength);
    trailer.cms.resize(cmsLength);
    int error = readExactly(fd, trailer.covered, trailer.directory);
    if (error == 0) {
        error = readExactly(fd, trailer.covered + directoryLength, trailer.cms);
    }
    if (error != 0) {
        return unreadableProgram(error);
    }
    return trailer;
}

std::string SignatureTrailer::encoded() const {
    std::string out = directory + cms;
    appendLittleEndian32(out, kVersion);
    appendLittleEndian32(out, static_cast<std::uint32_t>(directory.size()));
    appendLittleEndian32(out, static_cast<std::uint32_t>(cms.size()));
    appendLittleEndian32(out, 0);
    out += kMagic;
    return out;
}

} // namespace qv
