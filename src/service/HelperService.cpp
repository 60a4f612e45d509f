#include "service/HelperService.h"

#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/xpc/Limits.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace qv {

namespace {

// The limit is somewhat below the number of bytes that may wait to be sent on a connection: an
// answer that is longer could not be sent, and the script's sender would never learn the outcome.
constexpr std::size_t kLongestArchive = xpc::Limits().replyQueue - (std::size_t{64} << 10U);
constexpr std::size_t kLongestErrorText = std::size_t{1} << 20U;

// The error that a script ends with may hold parts of the script. Domain, code and beginning stay.
Error shortened(const Error& error) {
    const std::string text = error.localizedDescription();
    const std::string_view begin = std::string_view(text).substr(0, kLongestErrorText);
    return Error::withDescription(error.domain(), error.code(),
                                  fmt::format("{}... (shortened: the error is too long to be sent)",
                                              begin.substr(0, validUTF8Length(begin))));
}

// Returns nothing where even that cannot be archived.
Value replyOf(const Value& result) {
    auto archive = KeyedArchiver::archivedDataWithRootObject(result);
    const Value* error = result.find("error");
    if (archive && archive->size() > kLongestArchive && error != nullptr) {
        archive = KeyedArchiver::archivedDataWithRootObject(
            Value::dictionary({{"success", *result.find("success")},
                               {"errorScriptStepIndex", *result.find("errorScriptStepIndex")},
                               {"error", Value::error(shortened(error->asError()))}}));
    }
    return archive ? Value::dictionary({{"replyData", Value::data(*archive)}})
                   : Value::dictionary({});
}

} // namespace

HelperService::HelperService(xpc::MainQueue& queue, ClientVerification& verification,
                             const Value& infoDictionary, std::string examinerPath,
                             Admission::Charge charge)
    : queue_(queue), admission_(
                         queue, verification, infoDictionary, std::move(examinerPath),
                         [this](const auto& connection, auto identityCheck, ClientName client) {
                             serve(connection, std::move(identityCheck), client);
                         },
                         std::move(charge)) {}

void HelperService::handleConnection(const std::shared_ptr<xpc::Connection>& connection) {
    admission_.judge(connection);
}

void HelperService::serve(const std::shared_ptr<xpc::Connection>& connection,
                          std::function<bool()> identityCheck, const ClientName& client) {
    connection->setGuard(std::move(identityCheck));
    // The connection owns its handler: held weakly, so that the two do not keep each other alive.
    connection->setEventHandler(
        [this, weak = std::weak_ptr(connection), client](const xpc::Event& event) {
            if (const auto strong = weak.lock()) {
                handleEvent(strong, event, client);
            }
        });
    connection->resume();
}

void HelperService::handleEvent(const std::shared_ptr<xpc::Connection>& connection,
                                const xpc::Event& event, const ClientName& client) {
    if (const auto* message = std::get_if<xpc::Message>(&event)) {
        handleMessage(connection, *message, client);
    } else {
        log::write(log::Priority::error, "XPC Error");
    }
}

void HelperService::handleMessage(const std::shared_ptr<xpc::Connection>& connection,
                                  const xpc::Message& message, const ClientName& client) {
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
    RunRecord& record = records_.add(client, *connection->peer());
    const Value result = executeScriptData(hasData ? data->asData() : std::string_view(),
                                           connection->peer(), services_, &record);
    if (std::optional<xpc::Reply> reply = connection->createReply(message)) {
        connection->send(*reply, replyOf(result));
    }
    records_.write();
    watchExit(connection);
}

void HelperService::watchExit(const std::shared_ptr<xpc::Connection>& connection) {
    const ProcessIdentity& peer = *connection->peer();
    // A connection keeps its process; and while a watched one lives, no other can have its number.
    const auto known = std::ranges::find_if(exitWatches_, [&](const ExitWatch& watch) {
        return watch.connection.lock() == connection ||
               (watch.pid == peer.pid() && !watch.source->hasEnded());
    });
    if (known != exitWatches_.end()) {
        known->connection = connection;
        ++known->messages;
        return;
    }
    const auto watch =
        exitWatches_.insert(exitWatches_.end(), ExitWatch{peer.pid(), connection, 1, nullptr});
    auto source =
        xpc::ProcessSource::create(queue_, peer.pidfd(), [this, watch] { handleExit(watch); });
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
        records_.finish();
        queue_.exit(0);
        return;
    }
    exitWatches_.erase(watch);
}

} // namespace qv
