#include "client/QVCatalogHelperClient.h"

#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/process/state/LaunchMark.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/foundation/values/Exception.h"
#include "platform/xpc/ClientConnection.h"

#include <fmt/core.h>

#include <utility>

namespace qv {

struct QVCatalogHelperClient::State {
    xpc::ClientConnection connection;
    ClientGroup group;
};

namespace {

Error clientError(xpc::ClientErrorCode code, std::string_view text) {
    return Error::withDescription(xpc::kClientErrorDomain, static_cast<std::int64_t>(code), text);
}

Error noReply(std::string_view why) {
    return clientError(xpc::ClientErrorCode::protocol,
                       fmt::format("The service's reply cannot be read: {}", why));
}

Error unfit(const Error& why) {
    return clientError(xpc::ClientErrorCode::unfit,
                       fmt::format("This process cannot be a client of the service: {}.",
                                   why.localizedDescription()));
}

Error refusal(const Value& steps, ScriptReview review) {
    return review == ScriptReview::refusesErrors ? QVCatalogScriptReview::errorOfReview(steps)
                                                 : Error();
}

xpc::WaitLimits limitsOf(const WaitForService& wait) {
    return {wait.time ? Deadline::after(*wait.time) : Deadline(), wait.cancelDescriptor};
}

} // namespace

std::string QVCatalogHelperClient::defaultSocketPath() {
    return std::string(configuration::kSocketPath);
}

QVCatalogHelperClient::QVCatalogHelperClient(std::unique_ptr<State> state)
    : state_(std::move(state)) {}
QVCatalogHelperClient::QVCatalogHelperClient(QVCatalogHelperClient&&) noexcept = default;
QVCatalogHelperClient& QVCatalogHelperClient::operator=(QVCatalogHelperClient&&) noexcept = default;
QVCatalogHelperClient::~QVCatalogHelperClient() = default;

tl::expected<QVCatalogHelperClient, Error>
QVCatalogHelperClient::connect(const std::string& socketPath, ClientGroup group) {
    return connect(socketPath, group, {});
}

tl::expected<QVCatalogHelperClient, Error>
QVCatalogHelperClient::connect(const std::string& socketPath, ClientGroup group,
                               const WaitForService& wait) {
    if (const Error error = prepareMarkedProcess()) {
        return tl::unexpected(unfit(error));
    }
    auto connection = xpc::ClientConnection::connect(socketPath, limitsOf(wait));
    if (!connection) {
        return tl::unexpected(connection.error());
    }
    return QVCatalogHelperClient(std::make_unique<State>(State{std::move(*connection), group}));
}

Error QVCatalogHelperClient::giveUpClientGroup() {
    const Error error = giveUpLaunchMark();
    return error ? unfit(error) : Error();
}

tl::expected<ScriptOutcome, Error> QVCatalogHelperClient::executeScript(const Value& steps) {
    const auto list = PropertyList::dataWithPropertyList(steps, PropertyListFormat::binary);
    if (!list) {
        return tl::unexpected(list.error());
    }
    return executeScriptData(*list);
}

tl::expected<ScriptOutcome, Error> QVCatalogHelperClient::executeScript(const Value& steps,
                                                                        ScriptReview review) {
    if (const Error error = refusal(steps, review)) {
        return tl::unexpected(error);
    }
    return executeScript(steps);
}

tl::expected<ScriptOutcome, Error>
QVCatalogHelperClient::executeScriptData(std::string_view propertyList) {
    return executeScriptData(propertyList, {});
}

tl::expected<ScriptOutcome, Error>
QVCatalogHelperClient::executeScriptData(std::string_view propertyList,
                                         const WaitForService& wait) {
    const auto reply = state_->connection.sendMessageWithReply(
        Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                           {"data", Value::data(propertyList)}}),
        limitsOf(wait));
    if (!reply) {
        return tl::unexpected(reply.error());
    }
    if (state_->group == ClientGroup::untilReply) {
        // The outcome counts more than an error: nothing that is executed has the group in any
        // case.
        static_cast<void>(giveUpLaunchMark());
    }
    const Value* archive = reply->find("replyData");
    if (archive == nullptr || !archive->is(Value::Kind::data)) {
        return tl::unexpected(noReply("there is no \"replyData\" in it"));
    }
    return decodeReply(archive->asData());
}

QVCatalogScript::PriviledgedExecutionBlock
QVCatalogHelperClient::priviledgedExecutionBlock(std::string socketPath, ClientGroup group) {
    return priviledgedExecutionBlock(std::move(socketPath), group, ScriptReview::none);
}

QVCatalogScript::PriviledgedExecutionBlock
QVCatalogHelperClient::priviledgedExecutionBlock(std::string socketPath, ClientGroup group,
                                                 ScriptReview review) {
    // The error says why connecting has failed, if there is no client; without an error it has not
    // been tried.
    auto client =
        std::make_shared<tl::expected<QVCatalogHelperClient, Error>>(tl::unexpected(Error()));
    if (const Error error = prepareMarkedProcess()) {
        *client = tl::unexpected(unfit(error));
    }
    return [client, group, review, path = std::move(socketPath)](QVCatalogScript& /*script*/,
                                                                 const Value& steps, Error* error,
                                                                 const Value** errorScriptStep) {
        if (const Error mistake = refusal(steps, review)) {
            *error = mistake;
            return;
        }
        if (!*client && !client->error()) {
            *client = connect(path, group);
        }
        if (!*client) {
            *error = std::exchange(client->error(), Error());
            return;
        }
        const auto outcome = (*client)->executeScript(steps);
        if (!outcome) {
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
