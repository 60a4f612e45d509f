#include "platform/workspace/applications/Bundle.h"

#include "platform/foundation/os/Folder.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/plist/PropertyList.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

constexpr std::size_t kLongestList = std::size_t{1} << 20U;

// Links are followed inside the folder only: one must not show what others hide.
Descriptor openBeneath(int folder, const std::string& name, std::uint64_t flags) {
    open_how how{};
    how.flags = flags | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    return Descriptor(
        static_cast<int>(::syscall(SYS_openat2, folder, name.c_str(), &how, sizeof how)));
}

Descriptor openBundle(const std::string& path) {
    return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

std::optional<Value> infoDictionary(int folder) {
    for (const char* name : kInfoLists) {
        // O_NONBLOCK keeps a FIFO from making us wait.
        const Descriptor file = openBeneath(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY);
        const auto content = file ? contentOfRegularFile(file.get(), kLongestList) : std::nullopt;
        if (!content) {
            continue;
        }
        const auto list = PropertyList::propertyListWithData(*content);
        return list && list->root.is(Value::Kind::dictionary) ? list->root : Value::dictionary({});
    }
    return std::nullopt;
}

std::string nameWithoutExtension(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::size_t dot = name.rfind('.');
    return dot == 0 || dot == std::string::npos ? name : name.substr(0, dot);
}

bool isOneComponent(std::string_view name) {
    return name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

} // namespace

Bundle::Bundle(std::string path, std::optional<Value> info)
    : path_(std::move(path)), hasInfo_(info.has_value()) {
    info_ = hasInfo_ ? *std::move(info) : Value::dictionary({});
}

std::optional<Bundle> Bundle::bundleWithURL(const NamedItem& item) {
    const tl::expected<Descriptor, Error> held = item.hold(LastLink::keep);
    const Descriptor folder = held ? openFolderIn(held->get(), ".") : Descriptor();
    return folder ? std::optional(bundleInFolder(folder.get(), *item.path())) : std::nullopt;
}

Bundle Bundle::bundleInFolder(int folder, std::string path) {
    return {std::move(path), infoDictionary(folder)};
}

std::optional<Value> Bundle::objectForInfoDictionaryKey(std::string_view key) const {
    const Value* value = info_.find(key);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::string> Bundle::textForInfoDictionaryKey(std::string_view key) const {
    const Value* value = info_.find(key);
    return value != nullptr && value->is(Value::Kind::string) && !value->asString().empty()
               ? std::optional(std::string(value->asString()))
               : std::nullopt;
}

std::optional<std::string> Bundle::bundleIdentifier() const {
    return textForInfoDictionaryKey("CFBundleIdentifier");
}

std::optional<std::string> Bundle::displayName() const {
    return textForInfoDictionaryKey("CFBundleDisplayName");
}

std::optional<std::string> Bundle::bundleName() const {
    return textForInfoDictionaryKey("CFBundleName");
}

std::optional<std::string> Bundle::executablePath() const {
    std::optional<std::string> name = textForInfoDictionaryKey("CFBundleExecutable");
    if (!name) {
        name = textForInfoDictionaryKey("NSExecutable");
    }
    if (!name) {
        name = nameWithoutExtension(path_);
    }
    const Descriptor folder = openBundle(path_);
    if (!folder || !isOneComponent(*name)) {
        return std::nullopt;
    }
    for (const char* below : {"Contents/Linux/", "Contents/MacOS/", ""}) {
        const std::string inside = below + *name;
        const Descriptor file = openBeneath(folder.get(), inside, O_PATH);
        struct stat info{};
        if (file && ::fstat(file.get(), &info) == 0 && isProgramFile(info)) {
            return path_ + "/" + inside;
        }
    }
    return std::nullopt;
}

} // namespace qv
