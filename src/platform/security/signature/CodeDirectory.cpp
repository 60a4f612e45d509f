#include "platform/security/signature/CodeDirectory.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/security/signature/OpenSSLHandles.h"

#include <fmt/core.h>

#include <algorithm>
#include <limits>

namespace qv {

namespace {

namespace key {
constexpr std::string_view kFormat = "format";
constexpr std::string_view kIdentifier = "identifier";
constexpr std::string_view kTeam = "team";
constexpr std::string_view kFlags = "flags";
constexpr std::string_view kDigestAlgorithm = "digest-algorithm";
constexpr std::string_view kDigest = "digest";
constexpr std::string_view kCoveredLength = "covered-length";
constexpr std::string_view kPlatform = "platform";
constexpr std::string_view kEntitlements = "entitlements";
constexpr std::string_view kInfo = "info";
constexpr std::array kAll = {kFormat, kIdentifier,    kTeam,     kFlags,        kDigestAlgorithm,
                             kDigest, kCoveredLength, kPlatform, kEntitlements, kInfo};
} // namespace key

constexpr std::string_view kSHA256 = "sha256";
constexpr std::string_view kGetTaskAllow = "com.apple.security.get-task-allow";

tl::unexpected<SignatureFailure> malformed(std::string_view what) {
    return signatureFailure(codesign_status::kBadDictionaryFormat,
                            fmt::format("code directory: {}", what));
}

// Takes the values out of a directory one by one; the first complaint stays.
class DirectoryReader {
public:
    explicit DirectoryReader(const Value& root) : root_(root) {}

    std::string text(std::string_view name) {
        const Value* value = required(name, Value::Kind::string);
        if (value != nullptr && value->asString().empty()) {
            complain(name, "is empty");
        }
        return value == nullptr ? std::string() : std::string(value->asString());
    }
    std::uint64_t number(std::string_view name, std::uint64_t highest) {
        const Value* value = required(name, Value::Kind::integer);
        if (value == nullptr) {
            return 0;
        }
        if (value->asInteger() < 0 || static_cast<std::uint64_t>(value->asInteger()) > highest) {
            complain(name, "is out of range");
            return 0;
        }
        return static_cast<std::uint64_t>(value->asInteger());
    }
    std::string_view data(std::string_view name) {
        const Value* value = required(name, Value::Kind::data);
        return value == nullptr ? std::string_view() : value->asData();
    }
    Value optionalDictionary(std::string_view name) {
        return has(name) && required(name, Value::Kind::dictionary) != nullptr
                   ? *root_.find(name)
                   : Value::dictionary({});
    }
    [[nodiscard]] bool has(std::string_view name) const { return root_.find(name) != nullptr; }
    void complain(std::string_view name, std::string_view what) {
        if (complaint_.empty()) {
            complaint_ = fmt::format("\"{}\" {}", name, what);
        }
    }
    [[nodiscard]] const std::string& complaint() const { return complaint_; }

private:
    const Value* required(std::string_view name, Value::Kind kind) {
        const Value* value = root_.find(name);
        if (value == nullptr) {
            complain(name, "is missing");
        } else if (!value->is(kind)) {
            complain(name, fmt::format("is of class {}", className(value->kind())));
            value = nullptr;
        }
        return value;
    }

    const Value& root_;
    std::string complaint_;
};

tl::expected<Value, SignatureFailure> parsed(std::string_view bytes) {
    auto document = PropertyList::propertyListWithData(
        bytes, PropertyListLimits{.depth = CodeDirectory::kDeepest, .refuseDuplicateKeys = true});
    if (!document) {
        const Value userInfo = document.error().userInfo();
        const Value* why = userInfo.find(error_key::kDebugDescription);
        return malformed(why != nullptr && why->is(Value::Kind::string)
                             ? log::foreign(why->asString())
                             : "no property list");
    }
    if (document->format != PropertyListFormat::xml &&
        document->format != PropertyListFormat::binary) {
        return malformed("neither an XML nor a binary property list");
    }
    if (!document->root.is(Value::Kind::dictionary)) {
        return malformed("no dictionary");
    }
    const DictionaryView pairs = document->root.asDictionary();
    for (std::size_t index = 0; index < pairs.size(); ++index) {
        const std::string_view name = pairs.key(index);
        if (std::ranges::find(key::kAll, name) == key::kAll.end()) {
            return malformed(fmt::format("unknown key \"{}\"", log::foreign(name)));
        }
    }
    return document->root;
}

} // namespace

tl::expected<CodeDirectory, SignatureFailure> CodeDirectory::decode(std::string_view bytes) {
    auto root = parsed(bytes);
    if (!root) {
        return tl::unexpected(root.error());
    }
    constexpr std::uint64_t kHighest = std::numeric_limits<std::int64_t>::max();
    DirectoryReader reader(*root);
    const std::uint64_t format = reader.number(key::kFormat, kHighest);
    if (reader.complaint().empty() && format != kFormat) {
        return signatureFailure(codesign_status::kSignatureUnsupported,
                                fmt::format("code directory of format {}", format));
    }
    CodeDirectory directory;
    directory.identifier = reader.text(key::kIdentifier);
    directory.team = reader.text(key::kTeam);
    const std::uint64_t flags = reader.number(key::kFlags, 0xFFFFFFFF);
    if ((flags & ~std::uint64_t{kFlags}) != 0) {
        reader.complain(key::kFlags, fmt::format("holds unknown bits: {:#x}", flags));
    }
    directory.flags = static_cast<std::uint32_t>(flags);
    const std::string algorithm = reader.text(key::kDigestAlgorithm);
    const std::string_view digest = reader.data(key::kDigest);
    directory.coveredLength = reader.number(key::kCoveredLength, kHighest);
    if (reader.has(key::kPlatform)) {
        directory.platform = static_cast<std::uint32_t>(reader.number(key::kPlatform, 0xFFFFFFFF));
    }
    directory.entitlements = reader.optionalDictionary(key::kEntitlements);
    directory.info = reader.optionalDictionary(key::kInfo);
    if (!reader.complaint().empty()) {
        return malformed(reader.complaint());
    }
    if (algorithm != kSHA256) {
        return signatureFailure(
            codesign_status::kUnsupportedDigestAlgorithm,
            fmt::format("code directory: digest algorithm \"{}\"", log::foreign(algorithm)));
    }
    if (digest.size() != directory.digest.size()) {
        return malformed(fmt::format("\"digest\" has {} bytes", digest.size()));
    }
    std::ranges::copy(digest, directory.digest.begin());
    return directory;
}

tl::expected<std::string, Error> CodeDirectory::encoded() const {
    const auto number = [](std::uint64_t value) { return Value::unsignedInteger(value); };
    const Value root = Value::dictionary({
        {key::kFormat, Value::integer(kFormat)},
        {key::kIdentifier, Value::string(identifier)},
        {key::kTeam, Value::string(team)},
        {key::kFlags, number(flags)},
        {key::kDigestAlgorithm, Value::string(kSHA256)},
        {key::kDigest, Value::data(bytesView(digest.data(), digest.size()))},
        {key::kCoveredLength, number(coveredLength)},
        {key::kPlatform, number(platform)},
        {key::kEntitlements, entitlements},
        {key::kInfo, info},
    });
    return PropertyList::dataWithPropertyList(root, PropertyListFormat::binary);
}

bool CodeDirectory::getTaskAllow() const noexcept {
    const Value* value = entitlements.find(kGetTaskAllow);
    return value != nullptr && value->is(Value::Kind::boolean) && value->asBoolean();
}

std::array<std::uint8_t, 20> codeDirectoryHash(std::string_view bytes) {
    const SHA256Digest digest = sha256(bytes);
    std::array<std::uint8_t, 20> hash{};
    std::copy_n(digest.begin(), hash.size(), hash.begin());
    return hash;
}

} // namespace qv
