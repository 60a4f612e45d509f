#pragma once

#include "platform/security/TrustAnchors.h"
#include "platform/security/signature/SHA256.h"
#include "platform/security/signature/SignatureFailure.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace qv {

struct SignatureVerdict;

/// The most recently used entries of a kind, few enough to look through.
template <typename Key, typename T> class RecentEntries {
public:
    static constexpr std::size_t kMost = 64;

    const T* find(const Key& key) {
        const auto found = std::find_if(entries_.begin(), entries_.end(),
                                        [&](const auto& entry) { return entry.first == key; });
        if (found == entries_.end()) {
            return nullptr;
        }
        std::rotate(entries_.begin(), found, found + 1);
        return &entries_.front().second;
    }
    void add(Key key, T value) {
        if (entries_.size() == kMost) {
            entries_.pop_back();
        }
        entries_.emplace(entries_.begin(), std::move(key), std::move(value));
    }
    void clear() noexcept { entries_.clear(); }

private:
    std::vector<std::pair<Key, T>> entries_;
};

/// What examinations of programs remember: digests of covered ranges, and what signatures were
/// found to be worth. At most 64 entries each. Only programs of the trusted owner leave entries, so
/// that nobody else can push them out; a digest counts for the very same, unchanged file; and
/// everything is forgotten when the anchors change. Not for several threads at once.
///
/// A digest may be remembered because a running executable cannot be written, and every writer
/// before it ran has moved the file's change time. Libraries have no such protection.
class DigestCache {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    static constexpr std::uint64_t kLongestRange = std::uint64_t{256} << 20U;
    /// A file changed more recently may change again without its times showing it.
    static constexpr std::chrono::seconds kSettlingTime{2};

    explicit DigestCache(uid_t trustedOwner = 0, Clock clock = std::chrono::system_clock::now);

    /// Has to be called before the rest, with the anchors that the judgement is made under.
    void useAnchors(const AnchorSet& anchors);

    /// SHA-256 of the first `length` bytes of a regular file. Failures: kSignatureNotVerifiable
    /// above kLongestRange, kCancelled after the deadline, kStaticCodeChanged when the file changed
    /// meanwhile, kErrnoBase + errno.
    tl::expected<SHA256Digest, SignatureFailure>
    digest(int fd, std::uint64_t length, std::chrono::steady_clock::time_point deadline);

    /// `judge`'s verdict on the signature with this key (a digest of all its bytes), or the one
    /// remembered. `fd` is the program that carries it.
    std::shared_ptr<const SignatureVerdict> verdict(int fd, const SHA256Digest& key,
                                                    const std::function<SignatureVerdict()>& judge);

    /// Bytes read and hashed so far.
    [[nodiscard]] std::uint64_t hashedBytes() const noexcept { return hashedBytes_; }

private:
    struct FileKey {
        dev_t device;
        ino_t inode;
        long generation; ///< of the inode; 0 where the file system keeps none
        off_t size;
        std::int64_t modified; ///< nanoseconds
        std::int64_t changed;  ///< nanoseconds
        std::uint64_t length;
        friend bool operator==(const FileKey&, const FileKey&) = default;
    };

    static FileKey keyOf(int fd, const struct stat& info, std::uint64_t length);
    [[nodiscard]] bool isSettled(const struct stat& info) const;
    tl::expected<SHA256Digest, SignatureFailure>
    hash(int fd, std::uint64_t length, std::chrono::steady_clock::time_point deadline);

    uid_t trustedOwner_;
    Clock clock_;
    std::optional<AnchorSet::Digest> anchors_;
    RecentEntries<FileKey, SHA256Digest> digests_;
    RecentEntries<SHA256Digest, std::shared_ptr<const SignatureVerdict>> verdicts_;
    std::uint64_t hashedBytes_ = 0;
};

} // namespace qv
