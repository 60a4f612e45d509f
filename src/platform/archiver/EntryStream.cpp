#include "platform/archiver/EntryStream.h"

#include "platform/foundation/os/FileBytes.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace qv::archiver {

namespace {

constexpr std::size_t kBuffer = std::size_t{256} << 10U;

struct Header {
    std::int64_t seconds;
    std::uint32_t mode;
    std::uint32_t nanoseconds;
    std::uint32_t nameLength;
    std::uint32_t textLength;
    std::uint32_t kind;
    std::uint32_t unused;
};

} // namespace

void EntrySender::append(const void* bytes, std::size_t count) {
    buffer_.append(static_cast<const char*>(bytes), count);
}

void EntrySender::send(const Entry& entry) {
    const Header header{.seconds = entry.seconds,
                        .mode = entry.mode,
                        .nanoseconds = entry.nanoseconds,
                        .nameLength = static_cast<std::uint32_t>(entry.name.size()),
                        .textLength = static_cast<std::uint32_t>(entry.text.size()),
                        .kind = static_cast<std::uint32_t>(entry.kind),
                        .unused = 0};
    append(&header, sizeof header);
    buffer_ += entry.name;
    buffer_ += entry.text;
    if (buffer_.size() >= kBuffer) {
        flush();
    }
}

void EntrySender::sendFailure(std::string_view name, std::string_view cause) {
    Entry failure;
    failure.kind = EntryKind::failure;
    failure.name = name.substr(0, kLongestText);
    failure.text = cause.substr(0, kLongestText);
    send(failure);
}

void EntrySender::sendContent(std::string_view piece) {
    do {
        const std::string_view part = piece.substr(0, kBuffer);
        const auto length = static_cast<std::uint32_t>(part.size());
        append(&length, sizeof length);
        buffer_ += part;
        if (buffer_.size() >= kBuffer) {
            flush();
        }
        piece.remove_prefix(part.size());
    } while (!piece.empty());
}

void EntrySender::flush() {
    if (writeAll(pipe_, buffer_) != 0) {
        ::_exit(EXIT_FAILURE);
    }
    buffer_.clear();
}

EntryReceiver::EntryReceiver(int pipe)
    : pipe_(pipe), buffer_(std::make_unique_for_overwrite<char[]>(kBuffer)) {} // NOLINT

bool EntryReceiver::fill() {
    begin_ = end_ = 0;
    ssize_t count = 0;
    do {
        count = ::read(pipe_, buffer_.get(), kBuffer);
    } while (count < 0 && errno == EINTR);
    end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return end_ > 0;
}

bool EntryReceiver::take(void* into, std::size_t count) {
    char* to = static_cast<char*>(into);
    while (count > 0) {
        if (begin_ == end_ && !fill()) {
            return false;
        }
        const std::size_t part = std::min(count, end_ - begin_);
        std::memcpy(to, buffer_.get() + begin_, part);
        begin_ += part;
        to += part;
        count -= part;
    }
    return true;
}

bool EntryReceiver::take(std::string& into, std::uint32_t count) {
    if (count > kLongestText) {
        return false;
    }
    into.resize(count);
    // The kernel would not see the part behind a NUL byte, which is looked at here.
    return take(into.data(), count) && into.find('\0') == std::string::npos;
}

std::optional<Entry> EntryReceiver::receive() {
    constexpr std::uint32_t kPermissions = 0777;
    constexpr std::uint32_t kNanoseconds = 1'000'000'000;
    Header header{};
    Entry entry;
    if (!take(&header, sizeof header) || header.kind > static_cast<std::uint32_t>(EntryKind::end) ||
        header.nanoseconds >= kNanoseconds || !take(entry.name, header.nameLength) ||
        !take(entry.text, header.textLength)) {
        return std::nullopt;
    }
    entry.kind = static_cast<EntryKind>(header.kind);
    entry.mode = header.mode & kPermissions;
    entry.seconds = header.seconds;
    entry.nanoseconds = header.nanoseconds;
    return entry;
}

std::optional<std::string_view> EntryReceiver::receiveContent() {
    if (pieceLeft_ == 0) {
        if (!take(&pieceLeft_, sizeof pieceLeft_)) {
            return std::nullopt;
        }
        if (pieceLeft_ == 0) {
            return std::string_view();
        }
    }
    if (begin_ == end_ && !fill()) {
        return std::nullopt;
    }
    const std::size_t part = std::min<std::size_t>(pieceLeft_, end_ - begin_);
    const std::string_view piece(buffer_.get() + begin_, part);
    begin_ += part;
    pieceLeft_ -= static_cast<std::uint32_t>(part);
    return piece;
}

} // namespace qv::archiver
