#pragma once

#include "codesign/ClientName.h"
#include "codesign/ClientVerification.h"
#include "platform/foundation/values/Value.h"
#include "platform/xpc/Connection.h"
#include "platform/xpc/MainQueue.h"
#include "platform/xpc/RateLimiter.h"

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qv {

/// Decides who may talk to the service. A client that is known is judged at once; one whose program
/// nobody has judged yet waits, suspended, while the examiner does: one program of a user at a
/// time, and few at all, so that nobody waits for what another user has others look at. Everything
/// runs on the main queue.
class Admission {
public:
    /// Gets each accepted client, still suspended, a function that tells whether its process is
    /// still the accepted program, and its names.
    using Accepted = std::function<void(const std::shared_ptr<xpc::Connection>&,
                                        std::function<bool()>, ClientName)>;

    /// Gets what it costs, bit by bit, to judge a client of a user that cannot be decided about at
    /// once; and all of it again as a negative cost when that client is accepted.
    using Charge = std::function<void(uid_t, std::chrono::nanoseconds)>;

    /// `infoDictionary` holds, under "SMAuthorizedClients", the requirement for clients;
    /// `examinerPath` is the examiner's socket. Queue and verification must live as long.
    Admission(xpc::MainQueue& queue, ClientVerification& verification, const Value& infoDictionary,
              std::string examinerPath, Accepted accepted, Charge charge);

    /// A new client, suspended. It is passed on, now or later, or cancelled.
    void judge(const std::shared_ptr<xpc::Connection>& connection);

private:
    struct Candidate {
        std::shared_ptr<xpc::Connection> connection;
        /// The examination under way; null: it waits for its turn.
        std::unique_ptr<ClientVerification::Examination> examination;
        std::chrono::steady_clock::time_point begun; ///< the examination
        std::chrono::nanoseconds cost{};             ///< so far, as far as it was charged
        xpc::EventSource source;
        xpc::EventSource timer;
    };
    using Candidates = std::list<Candidate>;
    enum class Verdict : std::uint8_t { accepted, rejected, open };

    /// Decides about a candidate, or sees to it that it will be decided.
    void settle(Candidates::iterator candidate);
    Verdict verify(Candidate& candidate);
    /// An error is the reason to reject the candidate.
    [[nodiscard]] std::string watch(Candidates::iterator candidate);
    void advance(Candidates::iterator candidate);
    void reject(Candidates::iterator candidate, std::string_view why);
    void settleWaiting();
    void charge(Candidate& candidate, std::chrono::nanoseconds cost);
    void endExamination(Candidate& candidate);
    [[nodiscard]] bool mayBegin(const Candidate& candidate) const;
    /// Tells as well, now and then, what keeps good clients out.
    void logRejection(const Candidate& candidate, std::string_view why);

    xpc::MainQueue& queue_;
    ClientVerification& verification_;
    std::optional<std::string> requirement_; // of clients; none: the verifier's own
    std::string examinerPath_;
    Accepted accepted_;
    Charge charge_;
    xpc::RateLimiter rejections_;
    xpc::RateLimiter verifications_;
    std::chrono::steady_clock::time_point nextWarning_;
    Candidates candidates_;
};

} // namespace qv
