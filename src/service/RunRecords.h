#pragma once

#include "codesign/ClientName.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/xpc/MainQueue.h"
#include "script/record/RunRecord.h"

#include <chrono>
#include <list>

namespace qv {

/// The records of runs, written to their end on the main queue while nobody else is served. A
/// receiver that does not take them is waited for without holding up anything, and not for ever.
class RunRecords {
public:
    /// The queue must live as long.
    explicit RunRecords(xpc::MainQueue& queue);

    /// The record of a run that begins; stays until it is written, which needs its end first.
    RunRecord& add(const ClientName& client, const ProcessIdentity& requester);
    /// Has what is left of them written soon.
    void write();
    /// The same at once: the service ends.
    void finish();

private:
    void writeSome();

    xpc::MainQueue& queue_;
    log::RecordSink sink_;
    SecretValues secrets_;
    std::list<RunRecord> records_; // all have ended but the one that runs
    xpc::EventSource timer_;       // while the receiver is busy
    RunRecord::Clock::time_point lastWritten_;
};

} // namespace qv
