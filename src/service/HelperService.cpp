#include "service/HelperService.h"

#include "codesign/QVCodeSignatureVerifier.h"
#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <new>

namespace qv {

namespace {

constexpr std::string_view kTeamID = "T4KQ8ZP3WM";
// Hard and kill enforcement.
constexpr std::uint32_t kRequiredCodeSignatureAttributes = 0x300;

// Anyone may be rejected as often as he likes; the log must not fill up with it.
constexpr unsigned kRejectionsLogged = 10;
constexpr std::chrono::seconds kRejectionInterval{1};

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

} // namespace

HelperService::HelperService(xpc::MainQueue& queue, ClientVerification& verification,
                             Value infoDictionary)
    : queue_(queue), verification_(verification), infoDictionary_(std::move(infoDictionary)),
      rejections_(queue, kRejectionsLogged, kRejectionInterval,
                  [](std::string_view record) { log::write(log::Priority::error, record); }) {}

bool HelperService::accepts(const xpc::PeerCredentials& peer) {
    const ClientVerification::Peer registered =
        verification_.registerPeer(peer.pid, peer.pidfd, peer.uid, peer.gid);
    const std::unique_ptr<QVCodeSignatureVerifier> verifier(
        new (std::nothrow) QVCodeSignatureVerifier(
            peer.pid, kTeamID, kRequiredCodeSignatureAttributes, verification_.services()));
    if (!verifier) {
        rejections_.log(fmt::format(
            "Connection from pid {} rejected: code signature verifier couldn't be initialized",
            peer.pid));
        return false;
    }
    if (const std::optional<std::string> text = authorizedClientRequirement(infoDictionary_)) {
        verifier->setCodeSignatureRequirement(*text);
    }
    if (const Error error = verifier->verifyRequirements()) {
        rejections_.log(fmt::format(
            "Connection from pid {} rejected: code signing requirements not satisfied. error={}",
            peer.pid, error.description()));
        return false;
    }
    return true;
}

void HelperService::handleConnection(const std::shared_ptr<xpc::Connection>& connection) {
    if (!accepts(connection->peer())) {
        connection->cancel();
        return;
    }
    // The connection owns its handler: held weakly, so that the two do not keep each other alive.
    connection->setEventHandler([this, weak = std::weak_ptr(connection)](const xpc::Event& event) {
        if (const auto strong = weak.lock()) {
            handleEvent(strong, event);
        }
    });
    connection->resume();
}

void HelperService::handleEvent(const std::shared_ptr<xpc::Connection>& connection,
                                const xpc::Event& event) {
    if (const auto* message = std::get_if<xpc::Message>(&event)) {
        handleMessage(connection, *message);
    } else {
        log::write(log::Priority::error, "XPC Error");
    }
}

void HelperService::handleMessage(const std::shared_ptr<xpc::Connection>& connection,
                                  const xpc::Message& message) {
    if (message.remoteConnection() == nullptr) {
        return; // nobody waits for an answer
    }
    const Value* type = message.dictionary().find("type");
    if (type == nullptr || !type->is(Value::Kind::string) ||
        type->asString() != kExecuteScriptType) {
        return;
    }
    {
        const std::scoped_lock lock(clientCountLock);
        ++activeClientCount;
    }
    const Value* data = message.dictionary().find("data");
    const bool hasData = data != nullptr && data->is(Value::Kind::data);
    const Value result = executeScriptData(hasData ? data->asData() : std::string_view());
    if (std::optional<xpc::Reply> reply = connection->createReply(message)) {
        const auto archive = KeyedArchiver::archivedDataWithRootObject(result);
        connection->send(*reply, archive ? Value::dictionary({{"replyData", Value::data(*archive)}})
                                         : Value::dictionary({}));
    }
    watchExit(connection);
}

void HelperService::watchExit(const std::shared_ptr<xpc::Connection>& connection) {
    const xpc::PeerCredentials& peer = connection->peer();
    // A connection keeps its process; and while a watched one lives, no other can have its number.
    const auto known = std::ranges::find_if(exitWatches_, [&](const ExitWatch& watch) {
        return watch.connection.lock() == connection ||
               (watch.pid == peer.pid && !watch.source->hasEnded());
    });
    if (known != exitWatches_.end()) {
        known->connection = connection;
        ++known->messages;
        return;
    }
    const auto watch =
        exitWatches_.insert(exitWatches_.end(), ExitWatch{peer.pid, connection, 1, nullptr});
    auto source =
        xpc::ProcessSource::create(queue_, peer.pidfd, [this, watch] { handleExit(watch); });
    if (!source) {
        exitWatches_.erase(watch); // the count is never taken back; the service stays up
        return;
    }
    watch->source = std::move(*source);
    watch->source->resume();
}

void HelperService::handleExit(std::list<ExitWatch>::iterator watch) {
    const std::scoped_lock lock(clientCountLock);
    activeClientCount -= watch->messages;
    if (activeClientCount == 0) {
        queue_.exit(0);
        return;
    }
    exitWatches_.erase(watch);
}

} // namespace qv
