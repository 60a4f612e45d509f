#include "platform/foundation/values/ErrorText.h"

#include "platform/foundation/values/URL.h"

#include <fmt/core.h>

#include <array>
#include <cstring>
#include <limits>
#include <optional>

namespace qv {

namespace {

struct Sentence {
    std::int64_t code;
    std::string_view operation; // as NSUserStringVariant names it; empty: any
    std::string_view text;      // {0}: the item, {1}: the folder that it should have come to
};

constexpr std::array<Sentence, 7> kSentences = {{
    {4, "Remove", "“{0}” couldn’t be removed."},
    {4, "Move",
     "“{0}” couldn’t be moved to “{1}” because either the former doesn’t exist, or the folder "
     "containing the latter doesn’t exist."},
    {260, "", "The file “{0}” couldn’t be opened because there is no such file."},
    {262, "", "The file couldn’t be opened because the specified URL type isn’t supported."},
    {513, "Remove", "“{0}” couldn’t be removed because you don’t have permission to access it."},
    {516, "Copy",
     "“{0}” couldn’t be copied to “{1}” because an item with the same name already exists."},
    {516, "Move",
     "“{0}” couldn’t be moved to “{1}” because an item with the same name already exists."},
}};

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.remove_suffix(1);
    }
    return path;
}

std::string_view lastComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string_view folderOf(std::string_view path) {
    path = withoutTrailingSlashes(path);
    return path.substr(0, path.rfind('/') + 1);
}

std::optional<std::string> itemName(const Value& info) {
    const Value* path = info.find(error_key::kFilePath);
    if (path != nullptr && path->is(Value::Kind::string)) {
        return std::string(lastComponent(path->asString()));
    }
    const Value* url = info.find(error_key::kURL);
    if (url != nullptr && url->is(Value::Kind::url)) {
        return url->asURL().lastPathComponent();
    }
    return std::nullopt;
}

std::optional<std::string> destinationName(const Value& info) {
    const Value* path = info.find(error_key::kDestinationFilePath);
    if (path != nullptr && path->is(Value::Kind::string)) {
        return std::string(lastComponent(folderOf(path->asString())));
    }
    return std::nullopt;
}

bool isOperation(const Value& info, std::string_view operation) {
    const Value* variant = info.find(error_key::kUserStringVariant);
    return variant != nullptr && variant->is(Value::Kind::array) && !variant->asArray().empty() &&
           variant->asArray().front() == Value::string(operation);
}

} // namespace

std::string systemText(const Error& error) {
    if (error.domain() != error_domain::kPOSIX) {
        return {};
    }
    const std::int64_t code = error.code();
    const char* text = code >= 0 && code <= std::numeric_limits<int>::max()
                           ? strerrordesc_np(static_cast<int>(code))
                           : nullptr;
    return text == nullptr ? fmt::format("Unknown error: {}", code) : std::string(text);
}

std::string fileErrorSentence(const Error& error) {
    if (error.domain() != error_domain::kCocoa) {
        return {};
    }
    const Value info = error.userInfo();
    const std::optional<std::string> name = itemName(info);
    const std::optional<std::string> destination = destinationName(info);
    for (const Sentence& sentence : kSentences) {
        const auto names = [&](std::string_view place) {
            return sentence.text.find(place) != std::string_view::npos;
        };
        if (sentence.code == error.code() &&
            (sentence.operation.empty() || isOperation(info, sentence.operation)) &&
            (name || !names("{0}")) && (destination || !names("{1}"))) {
            return fmt::format(fmt::runtime(sentence.text), name.value_or(""),
                               destination.value_or(""));
        }
    }
    return {};
}

} // namespace qv
