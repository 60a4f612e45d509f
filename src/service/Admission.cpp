#include "service/Admission.h"

#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/foundation/log/Log.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <new>
#include <sys/epoll.h>
#include <utility>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kTeamID = "T4KQ8ZP3WM";
// The flags of hard and kill enforcement.
constexpr std::uint32_t kRequiredCodeSignatureAttributes = 0x300;

constexpr std::ptrdiff_t kExaminationsAtOnce = 4;
constexpr std::chrono::milliseconds kLongestWait{2000};

// Anyone may connect as often as he likes; the log must not fill up with that.
constexpr unsigned kRecordsLogged = 10;
constexpr std::chrono::seconds kRecordInterval{1};
constexpr std::chrono::seconds kWarningInterval{1};

// The first authorised client's requirement; none when the list does not say it as it should.
std::optional<std::string> authorizedClientRequirement(const Value& infoDictionary) {
    const Value* clients = infoDictionary.find("SMAuthorizedClients");
    if (clients == nullptr || !clients->is(Value::Kind::array) || clients->asArray().empty()) {
        return std::nullopt;
    }
    const Value& first = clients->asArray().front();
    return first.is(Value::Kind::string) ? std::optional(std::string(first.asString()))
                                         : std::nullopt;
}

std::uint32_t eventsFor(const ClientVerification::Examination& examination) {
    return examination.isSending() ? std::uint32_t{EPOLLOUT} : std::uint32_t{EPOLLIN};
}

} // namespace

Admission::Admission(xpc::MainQueue& queue, ClientVerification& verification,
                     const Value& infoDictionary, std::string examinerPath, Accepted accepted,
                     Charge charge)
    : queue_(queue), verification_(verification),
      requirement_(authorizedClientRequirement(infoDictionary)),
      examinerPath_(std::move(examinerPath)), accepted_(std::move(accepted)),
      charge_(std::move(charge)),
      rejections_(queue, kRecordsLogged, kRecordInterval,
                  [](std::string_view record) { log::write(log::Priority::error, record); }),
      verifications_(queue, kRecordsLogged, kRecordInterval,
                     [](std::string_view record) { log::write(log::Priority::notice, record); }) {}

void Admission::judge(const std::shared_ptr<xpc::Connection>& connection) {
    Candidate& candidate = candidates_.emplace_back();
    candidate.connection = connection;
    settle(std::prev(candidates_.end()));
}

void Admission::settle(Candidates::iterator candidate) {
    const auto begin = Clock::now();
    const Verdict verdict = verify(*candidate);
    const bool isDecidedAtOnce = verdict != Verdict::open && !candidate->timer;
    if (!isDecidedAtOnce) {
        charge(*candidate, verdict == Verdict::accepted ? -candidate->cost : Clock::now() - begin);
    }
    if (verdict == Verdict::open) {
        if (const std::string failed = watch(candidate); !failed.empty()) {
            reject(candidate, failed);
        }
        return;
    }
    if (verdict == Verdict::rejected) {
        candidate->connection->cancel();
    }
    candidates_.erase(candidate);
}

Admission::Verdict Admission::verify(Candidate& candidate) {
    const std::shared_ptr<const ProcessIdentity>& peer = candidate.connection->peer();
    ClientVerification::Guest guest = verification_.lookUp(peer);
    if (auto* examination = std::get_if<std::unique_ptr<ClientVerification::Examination>>(&guest)) {
        candidate.examination = std::move(*examination);
        return Verdict::open;
    }
    using Program = std::shared_ptr<const SecCode>;
    auto* program = std::get_if<Program>(&guest);
    const std::unique_ptr<QVCodeSignatureVerifier> verifier(
        new (std::nothrow) QVCodeSignatureVerifier(
            program != nullptr ? tl::expected<Program, Error>(std::move(*program))
                               : tl::unexpected(std::get<Error>(std::move(guest))),
            kTeamID, kRequiredCodeSignatureAttributes, verification_.services()));
    if (!verifier) {
        logRejection(candidate, "code signature verifier couldn't be initialized");
        return Verdict::rejected;
    }
    verifier->setLog([this](std::string_view record) { verifications_.log(record); });
    if (requirement_) {
        verifier->setCodeSignatureRequirement(*requirement_);
    }
    const std::string client = verification_.chooseRequirement(*verifier);
    if (const Error error = verifier->verifyRequirements()) {
        logRejection(candidate, fmt::format("code signing requirements not satisfied. error={}",
                                            error.description()));
        return Verdict::rejected;
    }
    if (!client.empty()) {
        verifications_.log(
            fmt::format("Connection from pid {} accepted: client {}", peer->pid(), client));
    }
    ClientName name = verifier->signedName();
    name.name = client.empty() ? "built in" : client;
    accepted_(candidate.connection, verifier->identityCheck(), std::move(name));
    return Verdict::accepted;
}

std::string Admission::watch(Candidates::iterator candidate) {
    if (!candidate->timer) {
        candidate->timer = queue_.addTimer([this, candidate] {
            reject(candidate, "its program was not examined in time");
            settleWaiting();
        });
        candidate->timer.setDeadline(queue_.now() + kLongestWait);
    }
    auto examination = std::exchange(candidate->examination, nullptr);
    if (!mayBegin(*candidate)) {
        return {}; // the examination is begun anew when it may be: other clients may have brought
                   // the answer
    }
    if (const auto begun = examination->begin(examinerPath_); !begun) {
        return fmt::format("its program cannot be examined: {}", begun.error());
    }
    auto source = queue_.watch(examination->descriptor(), eventsFor(*examination),
                               [this, candidate](std::uint32_t) { advance(candidate); });
    if (!source) {
        return source.error().localizedDescription();
    }
    candidate->source = std::move(*source);
    candidate->examination = std::move(examination);
    candidate->begun = Clock::now();
    return {};
}

void Admission::advance(Candidates::iterator candidate) {
    const auto finished = candidate->examination->advance();
    if (finished && !*finished) {
        if (const Error error = candidate->source.setEvents(eventsFor(*candidate->examination))) {
            reject(candidate, error.localizedDescription());
            settleWaiting();
        }
        return;
    }
    endExamination(*candidate);
    if (!finished) {
        reject(candidate, fmt::format("its program was not examined: {}", finished.error()));
    } else {
        settle(candidate);
    }
    settleWaiting();
}

void Admission::reject(Candidates::iterator candidate, std::string_view why) {
    endExamination(*candidate);
    logRejection(*candidate, why);
    candidate->connection->cancel();
    candidates_.erase(candidate);
}

// Ends an examination, complete or not, and charges its time to the program's user.
void Admission::endExamination(Candidate& candidate) {
    candidate.source.reset();
    if (candidate.examination) {
        candidate.examination.reset();
        charge(candidate, Clock::now() - candidate.begun);
    }
}

void Admission::charge(Candidate& candidate, std::chrono::nanoseconds cost) {
    candidate.cost += cost;
    charge_(candidate.connection->peer()->user(), cost);
}

void Admission::settleWaiting() {
    for (auto next = candidates_.begin(); next != candidates_.end();) {
        const auto candidate = next++;
        if (!candidate->examination && mayBegin(*candidate)) {
            settle(candidate);
        }
    }
}

bool Admission::mayBegin(const Candidate& candidate) const {
    std::ptrdiff_t underWay = 0;
    for (const Candidate& other : candidates_) {
        if (!other.examination) {
            continue;
        }
        if (other.connection->peer()->user() == candidate.connection->peer()->user()) {
            return false;
        }
        ++underWay;
    }
    return underWay < kExaminationsAtOnce;
}

void Admission::logRejection(const Candidate& candidate, std::string_view why) {
    rejections_.log(
        fmt::format("Connection from pid {} rejected: {}", candidate.connection->processID(), why));
    if (const auto now = Clock::now(); now >= nextWarning_) {
        nextWarning_ = now + kWarningInterval;
        for (const std::string& warning : verification_.warnings()) {
            log::write(log::Priority::error, warning);
        }
    }
}

} // namespace qv
