#include "foundation_ext/LocalizedStrings.h"

#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/text/DateText.h"

#include <fmt/core.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <vector>

namespace qv {

namespace {

constexpr std::size_t kLongestTable = std::size_t{1} << 20;

std::optional<Value> tableIn(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    std::string content(kLongestTable + 1, '\0');
    stream.read(content.data(), static_cast<std::streamsize>(content.size()));
    const auto length = static_cast<std::size_t>(stream.gcount());
    if (length == 0 || length > kLongestTable) {
        return std::nullopt;
    }
    content.resize(length);
    const auto list = PropertyList::propertyListWithData(content);
    return list && list->root.is(Value::Kind::dictionary) ? std::optional(list->root)
                                                          : std::nullopt;
}

bool canNameLanguage(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-';
}

// The languages from the most special to the most general one. A text that cannot name a language,
// such as a path, ends it.
std::vector<std::string> languagesOf(std::string_view localeIdentifier) {
    const auto end = std::ranges::find_if_not(localeIdentifier, canNameLanguage);
    std::string language(localeIdentifier.begin(), end);
    std::vector<std::string> languages;
    while (!language.empty()) {
        languages.push_back(language);
        const std::size_t last = language.find_last_of("_-");
        language.resize(last == std::string::npos ? 0 : last);
    }
    languages.emplace_back("Base");
    return languages;
}

} // namespace

LocalizedStrings::LocalizedStrings(const std::string& folder, std::string_view localeIdentifier) {
    for (const std::string& language : languagesOf(localeIdentifier)) {
        if (auto table =
                tableIn(fmt::format("{}/{}.lproj/Localizable.strings", folder, language))) {
            table_ = *table;
            return;
        }
    }
    table_ = tableIn(folder + "/Localizable.strings").value_or(Value());
}

LocalizedStrings LocalizedStrings::ofMainBundle() {
    return {std::string(configuration::kResourceFolder), currentLocaleIdentifier()};
}

std::string LocalizedStrings::localizedString(std::string_view key) const {
    const Value* text = table_.find(key);
    return std::string(text != nullptr && text->is(Value::Kind::string) ? text->asString() : key);
}

} // namespace qv
