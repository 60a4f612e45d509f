#pragma once

#include "codesign/ClientVerification.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/values/Value.h"
#include "platform/xpc/Connection.h"
#include "platform/xpc/MainQueue.h"
#include "platform/xpc/ProcessSource.h"
#include "script/PlatformServices.h"
#include "service/Admission.h"
#include "service/RunRecords.h"

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace qv {

/// The one request that the service understands.
inline constexpr std::string_view kExecuteScriptType = "executeQVCatalogScript";

/// Accepts clients, executes their scripts one at a time, answers, and ends the loop with status 0
/// when the last client that sent a script has ended. Everything runs on the main queue.
class HelperService {
public:
    /// The parameters are those of Admission. Queue and verification must live as long.
    HelperService(xpc::MainQueue& queue, ClientVerification& verification,
                  const Value& infoDictionary, std::string examinerPath, Admission::Charge charge);

    /// The listener's event handler.
    void handleConnection(const std::shared_ptr<xpc::Connection>& connection);

    [[nodiscard]] std::int64_t activeClients() const noexcept { return activeClientCount; }

private:
    /// Waits for the end of one process; takes back as many counts as it sent messages. One
    /// descriptor a process, however often it asks.
    struct ExitWatch {
        pid_t pid;
        std::weak_ptr<xpc::Connection> connection; ///< the one it was last known by
        std::int64_t messages;
        std::unique_ptr<xpc::ProcessSource> source;
    };

    void serve(const std::shared_ptr<xpc::Connection>& connection,
               std::function<bool()> identityCheck, const ClientName& client);
    void handleEvent(const std::shared_ptr<xpc::Connection>& connection, const xpc::Event& event,
                     const ClientName& client);
    void handleMessage(const std::shared_ptr<xpc::Connection>& connection,
                       const xpc::Message& message, const ClientName& client);
    void watchExit(const std::shared_ptr<xpc::Connection>& connection);
    void handleExit(std::list<ExitWatch>::iterator watch);

    xpc::MainQueue& queue_;
    Admission admission_;
    PlatformServices services_ = PlatformServices::shared();
    std::list<ExitWatch> exitWatches_;
    RunRecords records_{queue_};

    std::recursive_mutex clientCountLock; // guards activeClientCount
    std::int64_t activeClientCount = 0;   // counted messages whose sender has not been seen to end
};

/// Parses and replays a request's "data" on behalf of its sender; "replyData" archives its result.
/// Takes any bytes; never throws. `record`, when given, is told of the run and its end.
[[nodiscard]] Value executeScriptData(std::string_view data,
                                      const ProcessIdentity::Shared& requester,
                                      const PlatformServices& services,
                                      RunRecord* record = nullptr);

} // namespace qv
