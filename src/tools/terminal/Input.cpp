#include "tools/terminal/Input.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace qv::tools {

namespace {

constexpr std::size_t kMost = std::size_t{1} << 30U;

// A text that neither text reader takes has two errors. The old-style reader's tells more, unless
// the text begins as XML does.
Error likelierError(std::string_view content, const Error& error) {
    const Value info = error.userInfo();
    const Value* oldStyle = info.find("kCFPropertyListOldStyleParsingError");
    const std::size_t begin = content.find_first_not_of(" \t\r\n");
    return oldStyle != nullptr && begin != std::string_view::npos && content[begin] != '<'
               ? oldStyle->asError()
               : error;
}

} // namespace

tl::expected<std::string, Error> readInput(const std::string& file) {
    Descriptor opened;
    if (file != "-") {
        opened = Descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
        if (!opened) {
            return tl::unexpected(Error::posix(errno));
        }
    }
    return readToEnd(opened ? opened.get() : STDIN_FILENO);
}

tl::expected<std::string, Error> readToEnd(int descriptor) {
    std::string content;
    constexpr std::size_t kPiece = std::size_t{1} << 16U;
    while (true) {
        const std::size_t length = content.size();
        if (length > kMost) {
            return tl::unexpected(Error::posix(EFBIG));
        }
        content.resize(length + kPiece);
        const ssize_t got = ::read(descriptor, content.data() + length, kPiece);
        if (got < 0 && errno != EINTR) {
            return tl::unexpected(Error::posix(errno));
        }
        content.resize(length + static_cast<std::size_t>(got < 0 ? 0 : got));
        if (got == 0) {
            return content;
        }
    }
}

tl::expected<ListInput, Failure> readList(const std::string& file) {
    auto content = readInput(file);
    if (!content) {
        return fileFailure(ExitStatus::usage, file, content.error());
    }
    return listIn(file, std::move(*content));
}

tl::expected<ListInput, Failure> listIn(const std::string& file, std::string content) {
    auto list = PropertyList::propertyListWithData(content);
    if (!list) {
        return fileFailure(ExitStatus::failed, file, likelierError(content, list.error()));
    }
    return ListInput{std::move(content), std::move(*list)};
}

std::string reasonOf(const Error& error) {
    const Value info = error.userInfo();
    const Value* detail = info.find(error_key::kDebugDescription);
    return detail != nullptr && detail->is(Value::Kind::string) ? std::string(detail->asString())
                                                                : error.localizedDescription();
}

tl::unexpected<Failure> signingFailure(const Error& error) {
    const std::int64_t code = error.code();
    const bool isMissing = code == codesign_status::kErrnoBase + ENOENT;
    return failure(isMissing ? ExitStatus::usage : ExitStatus::failed, reasonOf(error), code);
}

tl::unexpected<Failure> fileFailure(ExitStatus status, const std::string& file,
                                    const Error& error) {
    return failure(status,
                   fmt::format("{}: {}", file == "-" ? "standard input" : file, reasonOf(error)));
}

} // namespace qv::tools
