#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"
#include "platform/xpc/ClientError.h"
#include "script/QVCatalogScript.h"
#include "script/review/QVCatalogScriptReview.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// The outcome of a script on the service's side.
struct ScriptOutcome {
    bool success = false;
    /// Position in the script of the step that stopped it; -1 when there is none.
    std::int64_t errorScriptStepIndex = -1;
    Error error;
};

/// The time for which a program that was started set-group-id keeps its client group.
enum class ClientGroup : std::uint8_t {
    untilReply, ///< the first reply ends it for good: the program can connect no more
    kept,       ///< for a long-lived program, which may connect again until giveUpClientGroup()
};

/// Whether a script is looked at before it is sent.
enum class ScriptReview : std::uint8_t {
    none,
    refusesErrors, ///< with a mistake of severity `error` it is not sent: kScriptReviewErrorDomain
};

/// The time for which a client waits for the service. A script that was sent is carried out in any
/// case; its outcome then stands in the service's record only.
struct WaitForService {
    std::optional<std::chrono::milliseconds> time; ///< ClientErrorCode::timedOut; none: no end
    /// Borrowed: once it can be read, nothing more is waited for, ClientErrorCode::cancelled. -1:
    /// there is none. An eventfd or a pipe lets another thread, or a signal's handler, cancel.
    int cancelDescriptor = -1;
};

/// A connection to the service. The service watches this process from the first script on and stays
/// until it ends. A script of which the service certainly executed nothing is sent again over a new
/// connection, a limited number of times; ClientErrorCode::interrupted says that it is not known
/// whether the script was executed. Use from one thread at a time.
///
/// An installed client is set-group-id, and the user who starts it chooses all that it starts with.
/// In a program that was started set-group-id, and in no other, `connect` and
/// `priviledgedExecutionBlock` therefore change the state of the whole process (of the signal mask:
/// of the calling thread) before anything else:
/// - not dumpable, so that its user can neither trace it nor take its socket;
///   RLIMIT_CORE 0, hard limit too; soft limits below 1024 (NOFILE), 8 MiB (STACK) or no limit
///   (FSIZE, AS, DATA) raised to that or to the hard limit, which may not be under 64, 1 MiB and
///   64, 256, 64 MiB; /dev/null as descriptor 0, 1 or 2 if closed; file-mode mask 022; SIGXFSZ
///   ignored if at its default; no signal blocked, the first time;
/// - real and effective group of all threads are the user's; the client group is the saved one, and
///   no executed program inherits that. Supplementary groups stay.
/// Returns ClientErrorCode::unfit, and connects to nothing, if any of this cannot be had.
/// Each time that it connects, the client group is the effective group of the calling thread for
/// that moment, with all signals blocked in it. When the first reply has come, or with
/// ClientGroup::kept at the program's wish, the client group goes for good; connecting anew is
/// ClientErrorCode::unfit then. In every program the socket is close-on-exec, no signal is raised
/// and no descriptor is taken.
///
/// Such a program must connect, or make the block, before it or another of its threads executes or
/// forks anything. It must not make itself dumpable, map writable code, change its groups, make the
/// saved group effective, or send a script that its caller supplied. Inherited descriptors above 2,
/// dispositions, environment and working directory are its own to judge.
class QVCatalogHelperClient {
public:
    /// The path at which the service of this build listens.
    [[nodiscard]] static std::string defaultSocketPath();

    /// Connects and waits until the service has accepted this process. Errors here and below that
    /// are not the script's: domain xpc::kClientErrorDomain, codes xpc::ClientErrorCode.
    /// It may be called again, also after it failed. The client may stay connected as long as it
    /// likes before its first script.
    static tl::expected<QVCatalogHelperClient, Error>
    connect(const std::string& socketPath = defaultSocketPath(),
            ClientGroup group = ClientGroup::untilReply);
    /// The same, with an end to waiting: while the service carries out the script of another
    /// client, it accepts nobody.
    static tl::expected<QVCatalogHelperClient, Error>
    connect(const std::string& socketPath, ClientGroup group, const WaitForService& wait);
    /// Gives up this process's client group for good. Connections that are open stay of use, but
    /// are not made anew. Does nothing in a program that was not started set-group-id.
    static Error giveUpClientGroup();

    QVCatalogHelperClient(QVCatalogHelperClient&&) noexcept;
    QVCatalogHelperClient& operator=(QVCatalogHelperClient&&) noexcept;
    QVCatalogHelperClient(const QVCatalogHelperClient&) = delete;
    QVCatalogHelperClient& operator=(const QVCatalogHelperClient&) = delete;
    ~QVCatalogHelperClient();

    /// Sends a script, an array of steps, and waits for the answer as long as the script takes.
    tl::expected<ScriptOutcome, Error> executeScript(const Value& steps);
    tl::expected<ScriptOutcome, Error> executeScript(const Value& steps, ScriptReview review);
    /// The same for a property list in any encoding, sent as it stands.
    tl::expected<ScriptOutcome, Error> executeScriptData(std::string_view propertyList);
    /// The same, with an end to waiting. The connection is closed then; the next script connects
    /// anew.
    tl::expected<ScriptOutcome, Error> executeScriptData(std::string_view propertyList,
                                                         const WaitForService& wait);

    /// For `QVCatalogScript::setPriviledgedExecutionBlock`: connects on first use and sends the
    /// recorded steps; a connection that breaks is made anew for the next ones, for which a program
    /// started set-group-id needs ClientGroup::kept. Its state is changed here, at once, so that
    /// steps which are tried without the service do not run with the client group; if that fails,
    /// the first use gets the error.
    static QVCatalogScript::PriviledgedExecutionBlock
    priviledgedExecutionBlock(std::string socketPath = defaultSocketPath(),
                              ClientGroup group = ClientGroup::untilReply);
    /// The same; recorded steps that are refused leave the error of the review, and nothing is
    /// connected.
    static QVCatalogScript::PriviledgedExecutionBlock
    priviledgedExecutionBlock(std::string socketPath, ClientGroup group, ScriptReview review);

private:
    struct State;
    explicit QVCatalogHelperClient(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

/// Decodes the bytes under "replyData".
[[nodiscard]] tl::expected<ScriptOutcome, Error> decodeReply(std::string_view archive);

} // namespace qv
