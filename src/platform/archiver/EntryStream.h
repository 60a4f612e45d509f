#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qv::archiver {

// The process that parses an archive tells the one that writes files its content: over a pipe, each
// entry with its name and facts, then the content of a file in pieces.

enum class EntryKind : std::uint8_t { folder, file, link, failure, end };

struct Entry {
    EntryKind kind = EntryKind::end;
    std::string name;
    std::string text;         ///< target of a link; cause of a failure
    mode_t mode = 0;          ///< permissions alone
    std::int64_t seconds = 0; ///< time of the last change
    std::uint32_t nanoseconds = 0;
};

/// The longest name or text that is carried, in bytes: what the kernel takes as a path.
inline constexpr std::size_t kLongestText = 4095;

/// The sender's side. A receiver that has gone ends the process.
class EntrySender {
public:
    explicit EntrySender(int pipe) : pipe_(pipe) {}
    void send(const Entry& entry);
    void sendFailure(std::string_view name, std::string_view cause);
    /// A piece of the last file's content; an empty one ends it.
    void sendContent(std::string_view piece);
    void flush();

private:
    void append(const void* bytes, std::size_t count);
    int pipe_;
    std::string buffer_;
};

/// The receiver's side, which trusts nothing that it is told.
class EntryReceiver {
public:
    explicit EntryReceiver(int pipe);
    /// Returns none when the stream ends, or is not a sender's.
    std::optional<Entry> receive();
    /// The next piece of a file's content, valid until the next call; empty at its end.
    std::optional<std::string_view> receiveContent();

private:
    bool fill();
    bool take(void* into, std::size_t count);
    bool take(std::string& into, std::uint32_t count);

    int pipe_;
    std::unique_ptr<char[]> buffer_; // NOLINT(*-avoid-c-arrays): not initialised
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::uint32_t pieceLeft_ = 0;
};

} // namespace qv::archiver
