#include "service/RunRecords.h"

#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/files/manager/FileManager.h"

#include <thread>

namespace qv {

namespace {

constexpr std::chrono::milliseconds kTurn(2);
constexpr std::chrono::milliseconds kPause(50);
constexpr std::chrono::seconds kLongestBusy(5);
// The pause at the end, when others may wait for the service to start again.
constexpr std::chrono::milliseconds kLastPause(2);
constexpr int kLastAttempts = 25; // in a row that got nothing written
constexpr std::chrono::seconds kLongestFinish(10);

// The administrator asks for secret values by a file of this name beside the allowed clients.
SecretValues secretsOfThisMachine() {
    const URL file = URL::fileURLWithPath(configuration::kClientsFolder)
                         .URLByDeletingLastPathComponent()
                         .URLByAppendingPathComponent("record-values");
    return FileManager::fileExistsAtPath(std::optional(file)) ? SecretValues::written
                                                              : SecretValues::digested;
}

} // namespace

RunRecords::RunRecords(xpc::MainQueue& queue)
    : queue_(queue), sink_("QVCatalogHelperXPC"), secrets_(secretsOfThisMachine()) {}

RunRecord& RunRecords::add(const ClientName& client, const ProcessIdentity& requester) {
    return records_.emplace_back(sink_,
                                 RunClient{.name = client.name,
                                           .identifier = client.identifier,
                                           .team = client.team,
                                           .codeHash = client.codeHash,
                                           .user = requester.user(),
                                           .process = static_cast<std::uint64_t>(requester.pid())},
                                 secrets_);
}

void RunRecords::write() {
    lastWritten_ = RunRecord::Clock::now();
    queue_.async([this] { writeSome(); });
}

void RunRecords::writeSome() {
    if (records_.empty()) {
        return;
    }
    const RunRecord::Written written = records_.front().writeFor(kTurn);
    const auto now = RunRecord::Clock::now();
    const bool isBusy = written == RunRecord::Written::nothing;
    const bool isGivenUp = isBusy && now - lastWritten_ > kLongestBusy;
    if (isGivenUp) {
        records_.front().abandon();
    }
    if (isGivenUp || written == RunRecord::Written::all) {
        records_.pop_front();
    }
    if (!isBusy || isGivenUp) {
        write();
        return;
    }
    if (!timer_) {
        timer_ = queue_.addTimer([this] { writeSome(); });
    }
    timer_.setDeadline(queue_.now() + kPause);
}

void RunRecords::finish() {
    const auto until = RunRecord::Clock::now() + kLongestFinish;
    for (RunRecord& record : records_) {
        auto written = RunRecord::Written::nothing;
        for (int attempt = 0; attempt < kLastAttempts && RunRecord::Clock::now() < until;
             ++attempt) {
            written = record.writeFor(until - RunRecord::Clock::now());
            if (written == RunRecord::Written::all) {
                break;
            }
            if (written == RunRecord::Written::some) {
                attempt = 0; // a slow journal is given its time
            }
            std::this_thread::sleep_for(kLastPause);
        }
        if (written != RunRecord::Written::all) {
            record.abandon();
        }
    }
    records_.clear();
}

} // namespace qv
