#include "platform/workspace/Bundle.h"

#include "platform/foundation/files/FileSystemPath.h"
#include "platform/foundation/files/UniqueFd.h"
#include "platform/foundation/plist/PropertyList.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

constexpr std::size_t kLongestList = std::size_t{1} << 20U;

// A regular file's content; none for all else, so that a FIFO keeps nobody waiting.
std::optional<std::string> contentOf(int folder, const char* name) {
    open_how how{};
    how.flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS; // a link must not show what others hide
    const UniqueFd file(static_cast<int>(::syscall(SYS_openat2, folder, name, &how, sizeof how)));
    struct stat info{};
    if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        std::cmp_greater(info.st_size, kLongestList)) {
        return std::nullopt;
    }
    std::string content(kLongestList, '\0');
    std::size_t length = 0;
    while (length < content.size()) {
        const ssize_t count = ::read(file.get(), content.data() + length, content.size() - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    content.resize(length);
    return content;
}

Value infoDictionary(int folder) {
    for (const char* name : {"Contents/Info.plist", "Resources/Info.plist", "Info.plist"}) {
        const std::optional<std::string> content = contentOf(folder, name);
        if (!content) {
            continue;
        }
        const auto list = PropertyList::propertyListWithData(*content);
        return list && list->root.is(Value::Kind::dictionary) ? list->root : Value::dictionary({});
    }
    return Value::dictionary({});
}

} // namespace

std::optional<Bundle> Bundle::bundleWithURL(const std::optional<URL>& url) {
    const tl::expected<std::string, Error> path = fileSystemPath(url);
    const UniqueFd folder(
        path ? ::open(path->c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1);
    return folder ? std::optional(Bundle(infoDictionary(folder.get()))) : std::nullopt;
}

std::optional<Value> Bundle::objectForInfoDictionaryKey(std::string_view key) const {
    const Value* value = info_.find(key);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

} // namespace qv
