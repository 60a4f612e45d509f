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
/// until it ends. A script of which the service certainly executed nothing is sent again over a new
/// connection, a limited number of times; ClientErrorCode::interrupted says that it is not known
/// whether the script was executed. Use from one thread at a time.
///
/// An installed client is set-group-id, and whoever starts it chooses all that it starts with. In
/// a program that was started set-group-id, and in no other, `connect` therefore changes the state
/// of the whole process (of the signal mask: of the calling thread):
/// - before it connects: not dumpable, so that its user can neither trace it nor take its socket;
///   RLIMIT_CORE 0, hard limit too; soft limits below 1024 (NOFILE), 8 MiB (STACK) or no limit
///   (FSIZE, AS, DATA) raised to that or to the hard limit, which may not be under 64, 1 MiB and
///   64, 256, 64 MiB; /dev/null as descriptor 0, 1 or 2 if closed; file-mode mask 022; SIGXFSZ
///   ignored if at its default; no signal blocked;
/// - when it returns, however that went: real, effective and saved group are the user's, for good.
///   Supplementary groups stay.
/// What cannot be had is an error, ClientErrorCode::unfit, and there is no connection.
/// In every program the socket is close-on-exec, no signal is raised and no descriptor is taken.
///
/// What remains with such a program: connect before anything is executed or forked, and before
/// other threads could do so; never make itself dumpable or map writable code; inherited
/// descriptors above 2, dispositions, environment and working directory are its own to judge; never
/// send a script that its caller supplied.
class QVCatalogHelperClient {
public:
    /// Where the service of this build listens.
    [[nodiscard]] static std::string defaultSocketPath();

    /// Connects and waits until the service has accepted this process. Errors here and below that
    /// are not the script's: domain xpc::kClientErrorDomain, codes xpc::ClientErrorCode.
    /// A program started set-group-id connects once: its group is gone afterwards, even when this
    /// failed, and each later call is refused with ClientErrorCode::unfit ("this process has given
    /// up its client group").
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
    /// A program that still has its client group connects here, at once: steps that are tried
    /// without the service must not run with that group. Make the block when the steps are ready,
    /// for the service closes a connection without a first script after 30 s. If connecting fails,
    /// the first use gets that error; later ones, and those after a connection that broke, get
    /// ClientErrorCode::unfit, and the program must be started anew.
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
