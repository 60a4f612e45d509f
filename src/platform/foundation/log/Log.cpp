#include "platform/foundation/log/Log.h"

#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

namespace qv::log {

namespace {

constexpr std::size_t kLongestRecord = 2048;
constexpr std::size_t kLongestSequence = 4; // of UTF-8

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
    [[maybe_unused]] const ssize_t written = // nothing can be done about a failure to report
        ::write(STDERR_FILENO, line.data(), line.size());
}

// Returns false for a character that ends a line, moves the cursor or turns the direction of the
// text around it.
bool isPrintable(char32_t point) {
    const bool control = point < 0x20 || (point >= 0x7F && point < 0xA0);
    const bool lineEnd = point == 0x2028 || point == 0x2029;
    const bool direction = point == 0x200E || point == 0x200F || point == 0x061C ||
                           (point >= 0x202A && point <= 0x202E) ||
                           (point >= 0x2066 && point <= 0x2069);
    return !control && !lineEnd && !direction;
}

std::string escapedBytes(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
    }
    return text;
}

} // namespace

void open(std::string_view programName, Destination destination) {
    State& current = state();
    current.programName = programName;
    current.destination = destination;
    current.echo = destination == Destination::standardError ||
                   (destination == Destination::systemLog && !standardErrorIsJournal());
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
        const std::size_t begin = index;
        // An invalid byte is as unfit to be shown as a control character.
        const bool valid = validUTF8Length(text.substr(index, kLongestSequence)) > 0;
        const char32_t point = valid ? decodeUTF8(text, index) : U'\0';
        index += valid ? 0 : 1;
        std::string piece(text.substr(begin, index - begin));
        if (!isPrintable(point)) {
            piece = escapedBytes(piece);
        }
        if (shown.size() + piece.size() > most) {
            return shown + "...";
        }
        shown += piece;
    }
    return shown;
}

} // namespace qv::log
