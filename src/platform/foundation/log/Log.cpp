#include "platform/foundation/log/Log.h"

#include "platform/foundation/values/UTF8.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

namespace qv::log {

namespace {

constexpr std::size_t kLongestRecord = 2048;

struct State {
    std::string programName;
    Destination destination = Destination::standardError;
    bool echo = true; // to standard error
};

State& state() {
    static State instance;
    return instance;
}

// The service manager names the journal's stream by device and inode when it is our standard error.
bool standardErrorIsJournal() {
    const char* named =
        std::getenv("JOURNAL_STREAM"); // NOLINT(concurrency-mt-unsafe): at start only
    struct stat info{};
    if (named == nullptr || ::fstat(STDERR_FILENO, &info) != 0) {
        return false;
    }
    return fmt::format("{}:{}", info.st_dev, info.st_ino) == named;
}

void writeStandardError(std::string_view text) {
    std::string line = state().programName.empty() ? std::string() : state().programName + ": ";
    line += text;
    line += '\n';
    // Nothing can be done about a failure to report.
    static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

} // namespace

void open(std::string_view programName, Destination destination) {
    State& current = state();
    current.programName = programName;
    current.destination = destination;
    current.echo = destination == Destination::standardError || !standardErrorIsJournal();
    if (destination == Destination::systemLog) {
        ::openlog(current.programName.c_str(), LOG_PID | LOG_NDELAY, LOG_DAEMON);
    }
}

void write(Priority priority, std::string_view text) {
    const std::string record = foreign(text, kLongestRecord);
    if (state().destination == Destination::systemLog) {
        ::syslog(static_cast<int>(priority), "%s", record.c_str());
    }
    if (state().echo) {
        writeStandardError(record);
    }
}

void NSLog(std::string_view text) { write(Priority::notice, text); }

std::string foreign(std::string_view text, std::size_t most) {
    std::string shown;
    shown.reserve(std::min(text.size(), most) + 16);
    for (std::size_t index = 0; index < text.size();) {
        if (shown.size() >= most) {
            return shown + "...";
        }
        const std::size_t valid = validUTF8Length(text.substr(index, 4));
        const auto byte = static_cast<unsigned char>(text[index]);
        if (valid == 0 || byte < 0x20 || byte == 0x7F) {
            fmt::format_to(std::back_inserter(shown), "\\x{:02x}", byte);
            ++index;
            continue;
        }
        const std::size_t begin = index;
        const char32_t point = decodeUTF8(text, index);
        if (point >= 0x80 && point < 0xA0) { // the control characters above ASCII
            fmt::format_to(std::back_inserter(shown), "\\x{:02x}", static_cast<unsigned>(point));
        } else {
            shown += text.substr(begin, index - begin);
        }
    }
    return shown;
}

} // namespace qv::log
