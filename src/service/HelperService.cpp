#include "service/HelperService.h"

#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/log/Log.h"

#include <algorithm>
#include <utility>

namespace qv {

HelperService::HelperService(xpc::MainQueue& queue, ClientVerification& verification,
                             const Value& infoDictionary, std::string examinerPath)
    : queue_(queue), admission_(queue, verification, infoDictionary, std::move(examinerPath),
                                [this](const auto& connection, auto identityCheck) {
                                    serve(connection, std::move(identityCheck));
                                }) {}

void HelperService::handleConnection(const std::shared_ptr<xpc::Connection>& connection) {
    admission_.judge(connection);
}

void HelperService::serve(const std::shared_ptr<xpc::Connection>& connection,
                          std::function<bool()> identityCheck) {
    connection->setGuard(std::move(identityCheck));
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
    const xpc::PeerCredentials& peer = connection->peer();
    const Value result =
        executeScriptData(hasData ? data->asData() : std::string_view(),
                          Requester{.process = peer.pid, .user = peer.uid}, services_);
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
