#include "client/QVCatalogHelperClient.h"

#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/process/LaunchMark.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Exception.h"
#include "platform/xpc/ClientConnection.h"

#include <fmt/format.h>

#include <utility>

namespace qv {

struct QVCatalogHelperClient::State {
    xpc::ClientConnection connection;
};

namespace {

Error clientError(xpc::ClientErrorCode code, std::string_view text) {
    return Error::withDescription(xpc::kClientErrorDomain, static_cast<std::int64_t>(code), text);
}

Error noReply(std::string_view why) {
    return clientError(xpc::ClientErrorCode::protocol,
                       fmt::format("The service's reply cannot be read: {}", why));
}

Error unfit(std::string_view why) {
    return clientError(xpc::ClientErrorCode::unfit,
                       fmt::format("This process cannot be a client of the service: {}.", why));
}

/// However connecting ends, by an exception as well, the group that marks this process does not
/// outlast it.
class MarkUntilConnected {
public:
    MarkUntilConnected() = default;
    ~MarkUntilConnected() { static_cast<void>(giveUpLaunchMark()); }
    MarkUntilConnected(const MarkUntilConnected&) = delete;
    MarkUntilConnected& operator=(const MarkUntilConnected&) = delete;
    MarkUntilConnected(MarkUntilConnected&&) = delete;
    MarkUntilConnected& operator=(MarkUntilConnected&&) = delete;
};

} // namespace

std::string QVCatalogHelperClient::defaultSocketPath() { return QV_SOCKET_PATH; }

QVCatalogHelperClient::QVCatalogHelperClient(std::unique_ptr<State> state)
    : state_(std::move(state)) {}
QVCatalogHelperClient::QVCatalogHelperClient(QVCatalogHelperClient&&) noexcept = default;
QVCatalogHelperClient& QVCatalogHelperClient::operator=(QVCatalogHelperClient&&) noexcept = default;
QVCatalogHelperClient::~QVCatalogHelperClient() = default;

tl::expected<QVCatalogHelperClient, Error>
QVCatalogHelperClient::connect(const std::string& socketPath) {
    if (launchMark() == LaunchMark::givenUp) {
        return tl::unexpected(unfit("this process has given up its client group, as it must once "
                                    "it has tried to connect; start the program anew"));
    }
    const MarkUntilConnected mark;
    if (const Error error = prepareMarkedProcess()) {
        return tl::unexpected(unfit(error.localizedDescription()));
    }
    auto connection = xpc::ClientConnection::connect(socketPath);
    if (const Error error = giveUpLaunchMark()) {
        return tl::unexpected(unfit(error.localizedDescription()));
    }
    if (!connection) {
        return tl::unexpected(connection.error());
    }
    return QVCatalogHelperClient(std::make_unique<State>(State{std::move(*connection)}));
}

tl::expected<ScriptOutcome, Error> QVCatalogHelperClient::executeScript(const Value& steps) {
    const auto list = PropertyList::dataWithPropertyList(steps, PropertyListFormat::binary);
    if (!list) {
        return tl::unexpected(list.error());
    }
    return executeScriptData(*list);
}

tl::expected<ScriptOutcome, Error>
QVCatalogHelperClient::executeScriptData(std::string_view propertyList) {
    const auto reply = state_->connection.sendMessageWithReply(Value::dictionary(
        {{"type", Value::string("executeQVCatalogScript")}, {"data", Value::data(propertyList)}}));
    if (!reply) {
        return tl::unexpected(reply.error());
    }
    const Value* archive = reply->find("replyData");
    if (archive == nullptr || !archive->is(Value::Kind::data)) {
        return tl::unexpected(noReply("there is no \"replyData\" in it"));
    }
    return decodeReply(archive->asData());
}

QVCatalogScript::PriviledgedExecutionBlock
QVCatalogHelperClient::priviledgedExecutionBlock(std::string socketPath) {
    // Without a client its error is why connecting has failed, or none: it is to be tried.
    auto client =
        std::make_shared<tl::expected<QVCatalogHelperClient, Error>>(tl::unexpected(Error()));
    if (launchMark() == LaunchMark::held) {
        *client = connect(socketPath);
    }
    return [client, path = std::move(socketPath)](QVCatalogScript& /*script*/, const Value& steps,
                                                  Error* error, const Value** errorScriptStep) {
        if (!*client && !client->error()) {
            *client = connect(path);
        }
        if (!*client) {
            *error = std::exchange(client->error(), Error());
            return;
        }
        const auto outcome = (*client)->executeScript(steps);
        if (!outcome) {
            *client = tl::unexpected(Error());
            *error = outcome.error();
            return;
        }
        *error = outcome->error;
        const auto index = static_cast<std::size_t>(outcome->errorScriptStepIndex);
        if (errorScriptStep != nullptr && index < steps.asArray().size()) {
            *errorScriptStep = &steps.asArray()[index];
        }
    };
}

tl::expected<ScriptOutcome, Error> decodeReply(std::string_view archive) {
    const auto root = KeyedUnarchiver::unarchiveObjectWithData(archive);
    if (!root) {
        return tl::unexpected(noReply(root.error().localizedDescription()));
    }
    const Value* success = root->find("success");
    const Value* index = root->find("errorScriptStepIndex");
    const Value* error = root->find("error");
    if (success == nullptr || !success->isNumber() || index == nullptr || !index->isNumber() ||
        (error != nullptr && !error->is(Value::Kind::error))) {
        return tl::unexpected(
            noReply("\"success\", \"errorScriptStepIndex\" or \"error\" is missing "
                    "or of the wrong class"));
    }
    return ScriptOutcome{boolValue(success), integerValue(index),
                         error == nullptr ? Error() : error->asError()};
}

} // namespace qv
