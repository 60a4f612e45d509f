#include "platform/security/DigestCache.h"

#include "platform/security/signature/FileBytes.h"
#include "platform/security/signature/SignatureVerdict.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

namespace qv {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20U;

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

tl::unexpected<SignatureFailure> readFailure(int errorNumber) {
    return signatureFailure(codesign_status::kErrnoBase + errorNumber,
                            fmt::format("reading the program: {}", errnoText(errorNumber)));
}

} // namespace

DigestCache::DigestCache(uid_t trustedOwner, Clock clock)
    : trustedOwner_(trustedOwner), clock_(std::move(clock)) {}

void DigestCache::useAnchors(const AnchorSet& anchors) {
    if (anchors_ != anchors.fingerprint()) {
        digests_.clear();
        verdicts_.clear();
        anchors_ = anchors.fingerprint();
    }
}

DigestCache::FileKey DigestCache::keyOf(int fd, const struct stat& info, std::uint64_t length) {
    long generation = 0; // stays 0 where the file system has no such number
    static_cast<void>(::ioctl(fd, FS_IOC_GETVERSION, &generation));
    return {info.st_dev,
            info.st_ino,
            generation,
            info.st_size,
            nanoseconds(info.st_mtim),
            nanoseconds(info.st_ctim),
            length};
}

bool DigestCache::isSettled(const struct stat& info) const {
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
        clock_().time_since_epoch() - kSettlingTime);
    return info.st_uid == trustedOwner_ && nanoseconds(info.st_ctim) < now.count();
}

tl::expected<SHA256Digest, SignatureFailure>
DigestCache::digest(int fd, std::uint64_t length, std::chrono::steady_clock::time_point deadline) {
    if (length > kLongestRange) {
        return signatureFailure(
            codesign_status::kSignatureNotVerifiable,
            fmt::format("{} bytes are signed; at most {} are looked at", length, kLongestRange));
    }
    struct stat before{};
    if (::fstat(fd, &before) != 0) {
        return readFailure(errno);
    }
    const FileKey key = keyOf(fd, before, length);
    const bool settled = isSettled(before);
    if (const SHA256Digest* known = settled ? digests_.find(key) : nullptr; known != nullptr) {
        return *known;
    }
    auto digest = hash(fd, length, deadline);
    if (!digest) {
        return digest;
    }
    struct stat after{};
    if (::fstat(fd, &after) != 0) {
        return readFailure(errno);
    }
    if (keyOf(fd, after, length) != key) {
        return signatureFailure(codesign_status::kStaticCodeChanged,
                                "the program changed while it was read");
    }
    if (settled) {
        digests_.add(key, *digest);
    }
    return digest;
}

tl::expected<SHA256Digest, SignatureFailure>
DigestCache::hash(int fd, std::uint64_t length, std::chrono::steady_clock::time_point deadline) {
    SHA256 running;
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(length, kPiece)));
    for (std::uint64_t at = 0; at < length;) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return signatureFailure(codesign_status::kCancelled,
                                    "no time left to read the program");
        }
        const std::span<char> part = std::span(piece).first(
            static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), length - at)));
        if (const int error = readExactly(fd, at, part); error != 0) {
            return readFailure(error);
        }
        running.update({part.data(), part.size()});
        at += part.size();
        hashedBytes_ += part.size();
    }
    return running.finish();
}

std::shared_ptr<const SignatureVerdict>
DigestCache::verdict(int fd, const SHA256Digest& key,
                     const std::function<SignatureVerdict()>& judge) {
    if (const auto* known = verdicts_.find(key); known != nullptr) {
        return *known;
    }
    auto made = std::make_shared<const SignatureVerdict>(judge());
    struct stat info{};
    if (made->status == codesign_status::kSuccess && made->isTimeless() &&
        ::fstat(fd, &info) == 0 && info.st_uid == trustedOwner_) {
        verdicts_.add(key, made);
    }
    return made;
}

} // namespace qv
