#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "platform/xpc/ClientError.h"
#include "script/QVCatalogScript.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace qv {

/// How a script went on the service's side.
struct ScriptOutcome {
    bool success = false;
    /// Position in the script of the step that stopped it; -1 when there is none.
    std::int64_t errorScriptStepIndex = -1;
    Error error;
};

/// A connection to the service. The service watches this process from the first script on and stays
/// until it ends. Use from one thread at a time.
class QVCatalogHelperClient {
public:
    /// Where the service of this build listens.
    [[nodiscard]] static std::string defaultSocketPath();

    /// Connects and waits until the service has accepted this process. Errors here and below that
    /// are not the script's: domain xpc::kClientErrorDomain, codes xpc::ClientErrorCode.
    static tl::expected<QVCatalogHelperClient, Error>
    connect(const std::string& socketPath = defaultSocketPath());

    QVCatalogHelperClient(QVCatalogHelperClient&&) noexcept;
    QVCatalogHelperClient& operator=(QVCatalogHelperClient&&) noexcept;
    QVCatalogHelperClient(const QVCatalogHelperClient&) = delete;
    QVCatalogHelperClient& operator=(const QVCatalogHelperClient&) = delete;
    ~QVCatalogHelperClient();

    /// Sends a script, an array of steps, and waits for the answer as long as the script takes.
    tl::expected<ScriptOutcome, Error> executeScript(const Value& steps);
    /// The same for a property list in any encoding, sent as it stands.
    tl::expected<ScriptOutcome, Error> executeScriptData(std::string_view propertyList);

    /// For `QVCatalogScript::setPriviledgedExecutionBlock`: connects on first use and sends the
    /// recorded steps; a connection that breaks is made anew for the next ones.
    static QVCatalogScript::PriviledgedExecutionBlock
    priviledgedExecutionBlock(std::string socketPath = defaultSocketPath());

private:
    struct State;
    explicit QVCatalogHelperClient(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

/// Decodes the bytes under "replyData".
[[nodiscard]] tl::expected<ScriptOutcome, Error> decodeReply(std::string_view archive);

} // namespace qv
