#pragma once

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/Descriptor.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qv::log {

/// One structured record: a message for people, and fields for programs.
class Record {
public:
    Record(Priority priority, std::string_view message);
    /// `name`: capital letters, digits and underscores. A name may come several times; a value may
    /// be any bytes, of which the first 2048 count.
    void add(std::string_view name, std::string_view value);
    void add(std::string_view name, std::uint64_t value);

    [[nodiscard]] Priority priority() const noexcept { return priority_; }
    [[nodiscard]] const std::string& message() const noexcept { return message_; } ///< one line
    /// The fields as the journal takes them: https://systemd.io/JOURNAL_NATIVE_PROTOCOL.
    [[nodiscard]] const std::string& fields() const noexcept { return fields_; }

private:
    Priority priority_;
    std::string message_;
    std::string fields_;
};

/// Takes records to the journal, or their messages to syslog where there is no journal. Nothing
/// here waits for either.
class RecordSink {
public:
    enum class Sent : std::uint8_t {
        yes,
        later, ///< the receiver is busy; try again
        lost,  ///< nobody receives, or not this record
    };

    /// The sockets of this machine's journal and syslog; in a developer's build those of its
    /// folder.
    explicit RecordSink(std::string programName);
    RecordSink(std::string programName, std::string journalPath, std::string syslogPath);

    [[nodiscard]] Sent send(const Record& record);

private:
    [[nodiscard]] Sent sendTo(const std::string& path, std::string_view datagram) const;

    std::string programName_;
    std::string journalPath_;
    std::string syslogPath_;
    Descriptor socket_;
};

} // namespace qv::log
