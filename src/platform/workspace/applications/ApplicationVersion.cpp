#include "platform/workspace/applications/ApplicationVersion.h"

#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/workspace/applications/Bundle.h"
#include "platform/workspace/applications/Metainfo.h"
#include "platform/workspace/applications/PackageDatabase.h"
#include "platform/workspace/applications/ResourceFork.h"

namespace qv {

namespace {

std::optional<std::string> desktopVersion(const std::string& path, std::string_view key,
                                          const std::string& root) {
    const bool isVersionKey = key == "CFBundleVersion" || key == "CFBundleShortVersionString";
    if (!isVersionKey || !path.ends_with(".desktop") || !path.starts_with(root)) {
        return std::nullopt;
    }
    const std::optional<std::string> version = versionFromMetainfo(path, root);
    return version ? version : packageVersionOfFile(path.substr(root.size()), root);
}

} // namespace

ApplicationVersion versionOfApplication(const std::string& path, std::string_view key,
                                        const std::string& root) {
    ApplicationVersion version;
    const auto place = copiedPath(root, path, CopiedLink::keep);
    const auto url = place ? std::optional(URL::fileURLWithPath(*place)) : std::nullopt;
    if (const auto bundle = Bundle::bundleWithURL(url)) {
        version.value = bundle->objectForInfoDictionaryKey(key);
    }
    if (!version.value) {
        const auto list = resourceListOfItem(path, root);
        if (!list) {
            version.listFault = list.error();
        } else if (const std::optional<Value>& dictionary = *list) {
            const Value* value = dictionary->find(key);
            version.value = value != nullptr ? std::optional(*value) : std::nullopt;
        }
    }
    if (!version.value) {
        const std::optional<std::string> text = desktopVersion(path, key, root);
        version.value = text && isUTF8(*text) ? std::optional(Value::string(*text)) : std::nullopt;
    }
    return version;
}

} // namespace qv
