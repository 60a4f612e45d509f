#include "platform/foundation/values/ErrorText.h"

#include "platform/foundation/values/Description.h"
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

// The platform's sentences that tell the cause themselves.
constexpr std::array<Sentence, 8> kSentences = {{
    {4, "Move",
     "“{0}” couldn’t be moved to “{1}” because either the former doesn’t exist, or the folder "
     "containing the latter doesn’t exist"},
    {260, "", "The file “{0}” couldn’t be opened because there is no such file"},
    {262, "", "The file “{0}” couldn’t be opened because the specified URL type isn’t supported"},
    {262, "", "The file couldn’t be opened because the specified URL type isn’t supported"},
    {513, "Remove", "“{0}” couldn’t be removed because you don’t have permission to access it"},
    {516, "Copy",
     "“{0}” couldn’t be copied to “{1}” because an item with the same name already exists"},
    {516, "Move",
     "“{0}” couldn’t be moved to “{1}” because an item with the same name already exists"},
    {3328, "Trash", "“{0}” couldn’t be moved to the trash because its volume has none"},
}};

// The first words of other sentences: “{0}” couldn’t be ...
struct Participle {
    std::string_view operation;
    std::string_view text;
};

constexpr std::array<Participle, 7> kParticiples = {{
    {"Remove", "removed"},
    {"Copy", "copied to “{1}”"},
    {"Copy", "copied"},
    {"Move", "moved to “{1}”"},
    {"Move", "moved"},
    {"Trash", "moved to the trash"},
    {"Launch", "launched"},
}};

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
    if (url == nullptr || !url->is(Value::Kind::url)) {
        return std::nullopt;
    }
    // The text is all of the URL where the URL itself is at fault.
    const bool isAtFault =
        !url->asURL().isFileURL() || info.find(error_key::kDebugDescription) != nullptr;
    return isAtFault ? url->asURL().absoluteString() : url->asURL().lastPathComponent();
}

std::optional<std::string> destinationName(const Value& info) {
    const Value* path = info.find(error_key::kDestinationFilePath);
    if (path != nullptr && path->is(Value::Kind::string)) {
        return std::string(lastComponent(folderOf(path->asString())));
    }
    return std::nullopt;
}

// The word under NSUserStringVariant, which stands alone or in an array; empty without one.
std::string_view operationIn(const Value& info) {
    const Value* variant = info.find(error_key::kUserStringVariant);
    if (variant != nullptr && variant->is(Value::Kind::array) && !variant->asArray().empty()) {
        variant = &variant->asArray().front();
    }
    return variant != nullptr && variant->is(Value::Kind::string) ? variant->asString()
                                                                  : std::string_view();
}

bool isFileCode(std::int64_t code) {
    constexpr std::int64_t kLastFileCode = 1023;
    return (code >= cocoa_error::kFileNoSuchFile && code <= kLastFileCode) ||
           code == cocoa_error::kFeatureUnsupported;
}

// The action that could not be done, without the final stop; empty for an error of another kind.
struct Clause {
    std::string text;
    bool tellsCause = false;
};

Clause clauseOf(const Error& error) {
    const bool isFileError = error.domain() == error_domain::kCocoa && isFileCode(error.code());
    const Value info = error.userInfo();
    const std::string_view operation = operationIn(info);
    if (!isFileError && (error.domain() != error_domain::kOSStatus || operation.empty())) {
        return {};
    }
    const std::optional<std::string> name = itemName(info);
    const std::optional<std::string> destination = destinationName(info);
    const auto canSay = [&](std::string_view text) {
        return (name || text.find("{0}") == std::string_view::npos) &&
               (destination || text.find("{1}") == std::string_view::npos);
    };
    const auto filledIn = [&](std::string_view text) {
        return fmt::format(fmt::runtime(text), name.value_or(""), destination.value_or(""));
    };
    for (const Sentence& sentence : kSentences) {
        if (isFileError && sentence.code == error.code() && canSay(sentence.text) &&
            (sentence.operation.empty() || sentence.operation == operation)) {
            return {filledIn(sentence.text), true};
        }
    }
    if (!name) {
        return {};
    }
    // The code alone decides when the operation is not known.
    std::string_view done = error.code() < cocoa_error::kFileWriteUnknown ? "opened" : "saved";
    for (const Participle& each : kParticiples) {
        if (each.operation == operation && canSay(each.text)) {
            done = each.text;
            break;
        }
    }
    return {fmt::format("“{}” couldn’t be {}", *name, filledIn(done)), false};
}

// The cause in words of the error's own; empty without any.
std::string ownCause(const Value& info) {
    for (const std::string_view key :
         {error_key::kLocalizedFailureReason, error_key::kDebugDescription}) {
        if (const Value* text = info.find(key)) {
            return description(*text);
        }
    }
    return {};
}

std::string phraseOf(const Error& error) {
    if (const Value* own = error.userInfo().find(error_key::kLocalizedDescription)) {
        return description(*own);
    }
    const std::string text = systemText(error);
    return text.empty() ? fmt::format("{} error {}", error.domain(), error.code()) : text;
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
    Clause clause = clauseOf(error);
    std::string text = clause.text;
    constexpr int kMostCauses = 4; // a chain of any length may have come from elsewhere
    Error effect = error;
    for (int i = 0; i < kMostCauses && !clause.text.empty() && !clause.tellsCause; ++i) {
        const Value info = effect.userInfo();
        const std::string own = ownCause(info);
        const Value* underlying = info.find(error_key::kUnderlyingError);
        if (!own.empty()) {
            text += ": " + own;
        }
        if (!own.empty() || underlying == nullptr || !underlying->is(Value::Kind::error)) {
            break;
        }
        effect = underlying->asError();
        clause = clauseOf(effect);
        text += ": " + (clause.text.empty() ? phraseOf(effect) : clause.text);
    }
    return text.empty() || text.ends_with('.') ? text : text + ".";
}

} // namespace qv
