#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv::log {

enum class Priority : std::uint8_t { error = 3, notice = 5 }; // as syslog numbers them

enum class Destination : std::uint8_t {
    standardError, ///< plain lines; the destination of a program that never calls `open`
    nowhere,       ///< for a command whose own output tells what happened
    systemLog,     ///< syslog, and standard error as well unless that already is the journal
};

/// Chooses where this process's records go. Call it once, at start, before other threads exist.
void open(std::string_view programName, Destination destination);

/// Writes one record, whatever the text: exactly one line, as `foreign` shows it, cut after 2048
/// bytes. Failures are ignored; a program whose standard error may go away ignores SIGPIPE.
void write(Priority priority, std::string_view text);

/// A diagnostic of the inner rooms.
void NSLog(std::string_view text);

/// A text that comes from outside, ready to be put into a record or on a terminal: the bytes of
/// control characters, of line and direction marks and of invalid UTF-8 as \xNN; at most `most`
/// bytes, then "..." where there was more.
[[nodiscard]] std::string foreign(std::string_view text, std::size_t most = 256);

} // namespace qv::log
