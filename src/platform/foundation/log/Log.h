#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv::log {

enum class Priority : std::uint8_t { error = 3, notice = 5 }; // as syslog numbers them

enum class Destination : std::uint8_t {
    standardError, ///< plain lines; what a program has that never calls `open`
    systemLog,     ///< syslog, and standard error as well unless that already is the journal
};

/// Chooses where this process's records go. Call it once, at start, before other threads exist.
void open(std::string_view programName, Destination destination);

/// Writes one record: exactly one line, control bytes shown as \xNN, invalid UTF-8 as \xNN, cut
/// after 2048 bytes. Never fails visibly.
void write(Priority priority, std::string_view text);

/// A diagnostic of the inner rooms.
void NSLog(std::string_view text);

/// A text that comes from outside, ready to be put into a record: control bytes and invalid UTF-8
/// as \xNN, cut after `most` bytes with "...".
[[nodiscard]] std::string foreign(std::string_view text, std::size_t most = 256);

} // namespace qv::log
