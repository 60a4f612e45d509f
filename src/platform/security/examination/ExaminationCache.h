#pragma once

#include "platform/foundation/os/FileKey.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace qv {

/// Remembers what programs were found to be worth, the 64 most recently used ones. Only good
/// signatures of programs of the trusted owner stay, so that nobody else can push them out; they
/// count for the very same, unchanged file, and until a certificate expires where that counts; and
/// all are forgotten when the anchors change. Not for several threads at once.
///
/// A judgement may be remembered because a running executable cannot be written, and every writer
/// before it ran has moved the file's change time. Libraries have no such protection.
class ExaminationCache {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    static constexpr std::size_t kMost = 64;
    /// A file changed more recently may change again without its times showing it.
    static constexpr std::chrono::seconds kSettlingTime{2};

    explicit ExaminationCache(uid_t trustedOwner = 0, Clock clock = std::chrono::system_clock::now);

    /// Has to be called before the rest, with the anchors that the judgement is made under.
    void useAnchors(const AnchorSet& anchors);

    /// Returns null when this file, as it is, has not been judged.
    [[nodiscard]] std::shared_ptr<const StaticCode> find(const FileKey& file);
    void add(const FileKey& file, const std::shared_ptr<const StaticCode>& code);

private:
    [[nodiscard]] bool isSettled(const FileKey& file) const;

    uid_t trustedOwner_;
    Clock clock_;
    AnchorSet::Digest anchors_{};
    std::vector<std::pair<FileKey, std::shared_ptr<const StaticCode>>> entries_; // latest first
};

} // namespace qv
