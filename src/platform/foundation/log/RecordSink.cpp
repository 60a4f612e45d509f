#include "platform/foundation/log/RecordSink.h"

#include "platform/foundation/configuration/Configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qv::log {

namespace {

constexpr std::size_t kLongestValue = 2048;
constexpr int kDaemonFacility = 3; // as syslog numbers it

// A value with a line feed goes with its length, 64 bits from the lowest byte on.
void appendField(std::string& fields, std::string_view name, std::string_view value) {
    fields += name;
    if (value.find('\n') == std::string_view::npos) {
        fields += '=';
    } else {
        fields += '\n';
        constexpr unsigned kByte = 8;
        for (unsigned shift = 0; shift < 64; shift += kByte) {
            fields += static_cast<char>((std::uint64_t{value.size()} >> shift) & 0xFFU);
        }
    }
    fields += value;
    fields += '\n';
}

} // namespace

Record::Record(Priority priority, std::string_view message)
    : priority_(priority), message_(foreign(message, kLongestValue)) {
    add("MESSAGE", message_);
    add("PRIORITY", static_cast<std::uint64_t>(priority));
}

void Record::add(std::string_view name, std::string_view value) {
    appendField(fields_, name, value.substr(0, kLongestValue));
}

void Record::add(std::string_view name, std::uint64_t value) { add(name, std::to_string(value)); }

RecordSink::RecordSink(std::string programName)
    : RecordSink(std::move(programName), std::string(configuration::kJournalSocket),
                 std::string(configuration::kSyslogSocket)) {}

RecordSink::RecordSink(std::string programName, std::string journalPath, std::string syslogPath)
    : programName_(std::move(programName)), journalPath_(std::move(journalPath)),
      syslogPath_(std::move(syslogPath)),
      socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}

RecordSink::Sent RecordSink::sendTo(const std::string& path, std::string_view datagram) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return Sent::lost;
    }
    std::ranges::copy(path, std::begin(address.sun_path));
    const ssize_t sent = ::sendto(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL,
                                  reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (sent >= 0) {
        return Sent::yes;
    }
    return errno == EAGAIN || errno == EINTR || errno == ENOBUFS ? Sent::later : Sent::lost;
}

RecordSink::Sent RecordSink::send(const Record& record) {
    const std::string identifier = "SYSLOG_IDENTIFIER=" + programName_ + "\n";
    const Sent sent = sendTo(journalPath_, identifier + record.fields());
    if (sent != Sent::lost) {
        return sent;
    }
    constexpr int kFacilityShift = 3;
    return sendTo(syslogPath_, fmt::format("<{}>{}[{}]: {}",
                                           (kDaemonFacility << kFacilityShift) |
                                               static_cast<int>(record.priority()),
                                           programName_, ::getpid(), record.message()));
}

} // namespace qv::log
