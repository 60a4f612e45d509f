#include "platform/system/MainBundle.h"

#include "platform/foundation/plist/PropertyList.h"

#include <filesystem>
#include <string_view>
#include <system_error>

// The linker's names for the bounds of the section; null in a program that has no such section.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
[[gnu::weak, gnu::visibility("hidden")]] extern const char __start___info_plist[];
[[gnu::weak, gnu::visibility("hidden")]] extern const char __stop___info_plist[];
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace qv::MainBundle {

std::optional<std::string> bundlePath() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::nullopt : std::optional<std::string>(program.parent_path());
}

Value infoDictionary() {
    const std::string_view section(
        __start___info_plist, static_cast<std::size_t>(__stop___info_plist - __start___info_plist));
    if (section.empty()) {
        return Value::dictionary({});
    }
    const auto list = PropertyList::propertyListWithData(section);
    return list && list->root.is(Value::Kind::dictionary) ? list->root : Value::dictionary({});
}

std::optional<std::string> textForInfoDictionaryKey(std::string_view key) {
    const Value info = infoDictionary();
    const Value* value = info.find(key);
    return value != nullptr && value->is(Value::Kind::string)
               ? std::optional(std::string(value->asString()))
               : std::nullopt;
}

} // namespace qv::MainBundle
