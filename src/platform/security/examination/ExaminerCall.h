#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/process/worker/ValueFrame.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace qv {

// The messages between the service and its examiner over a stream socket, one request and one reply
// a connection: frames (ValueFrame.h). With the first byte of the request comes one descriptor: the
// program, open for reading.
//
//     request   "anchors" (AnchorSet::encoded), "milliseconds" (how long it may take)
//     reply     StaticCode::encoded

inline constexpr std::size_t kLongestRequest = std::size_t{4} << 20U; ///< all anchors there can be
inline constexpr std::size_t kLongestReply = std::size_t{1} << 20U;

/// Asks the examiner, another process without privilege, what a program is worth. Never waits: its
/// owner watches the descriptor and lets it go on. Ends with its owner.
class ExaminerCall {
public:
    /// `path` names the examiner's socket, which must be root's or this user's own. `program` is
    /// borrowed until the request is out; `time` is the time that the judgement may take. The error
    /// names the path and the cause.
    static tl::expected<ExaminerCall, std::string> begin(const std::string& path, int program,
                                                         const AnchorSet& anchors,
                                                         std::chrono::milliseconds time);

    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    /// The request is not out yet: the descriptor has to become writable, not readable.
    [[nodiscard]] bool isSending() const noexcept { return !request_.empty(); }

    using Result = tl::expected<StaticCode, std::string>;
    /// Continues as far as it can; none when it has to wait.
    [[nodiscard]] std::optional<Result> advance();

private:
    ExaminerCall(Descriptor socket, int program, std::string request) noexcept;
    /// The fault in words; empty when there is none.
    std::string send();
    std::optional<Result> receive();

    Descriptor socket_;
    int program_;
    std::string request_; // the part of it that has still to be sent
    bool programSent_ = false;
    ValueFrameReader reply_{kLongestReply};
};

} // namespace qv
