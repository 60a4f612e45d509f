#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/security/examination/ExaminationWire.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <tl/expected.hpp>

#include <chrono>
#include <optional>
#include <string>

namespace qv {

/// Asks the examiner, another process without privilege, what a program is worth. Never waits: its
/// owner watches the descriptor and lets it go on. Ends with its owner.
class ExaminerCall {
public:
    /// `path`: where the examiner listens, which must be root's or this user's own socket.
    /// `program` is borrowed until the request is out; `time` is how long the judgement may take.
    /// The error names the path and the cause.
    static tl::expected<ExaminerCall, std::string> begin(const std::string& path, int program,
                                                         const AnchorSet& anchors,
                                                         std::chrono::milliseconds time);

    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    /// The request is not out yet: the descriptor has to become writable, not readable.
    [[nodiscard]] bool isSending() const noexcept { return !request_.empty(); }

    using Result = tl::expected<StaticCode, std::string>;
    /// Goes on as far as it can; none when it has to wait.
    [[nodiscard]] std::optional<Result> advance();

private:
    ExaminerCall(Descriptor socket, int program, std::string request) noexcept;
    /// What went wrong; empty when nothing did.
    std::string send();
    std::optional<Result> receive();

    Descriptor socket_;
    int program_;
    std::string request_; // what of it has still to go
    bool programSent_ = false;
    ExaminationFrameReader reply_{kLongestReply};
};

} // namespace qv
