#include "platform/foundation/archive/KeyedUnarchiver.h"

#include "platform/foundation/archive/ArchiveClass.h"
#include "platform/foundation/archive/ArchiveError.h"
#include "platform/foundation/archive/ObjectTable.h"
#include "platform/foundation/plist/PropertyList.h"

#include <fmt/core.h>

#include <optional>
#include <utility>

namespace qv {

namespace {

using Kind = Value::Kind;

Error listError(const Error& cause) {
    const Value userInfo = cause.userInfo();
    const Value* why = userInfo.find(error_key::kDebugDescription);
    const std::string_view text =
        why != nullptr && why->is(Kind::string) ? why->asString() : "unreadable";
    return {error_domain::kCocoa, cocoa_error::kCoderReadCorrupt,
            Value::dictionary(
                {{error_key::kDebugDescription,
                  Value::string(fmt::format("the archive is not a property list: {}", text))},
                 {error_key::kUnderlyingError, Value::error(cause)}})};
}

Error checkFrame(const Value& archive) {
    using namespace archive_key;
    if (!archive.is(Kind::dictionary)) {
        return archiveError("the archive is not a dictionary");
    }
    const Value* version = archive.find(kVersion);
    if (version == nullptr || !version->is(Kind::integer)) {
        return archiveError("$version is not an integer");
    }
    if (version->asInteger() != kArchiveVersion) {
        return archiveError(
            fmt::format("$version is {}, not {}", version->asInteger(), kArchiveVersion));
    }
    const Value* archiver = archive.find(kArchiver);
    if (archiver == nullptr || !archiver->is(Kind::string)) {
        return archiveError("$archiver is not a string");
    }
    const Value* objects = archive.find(kObjects);
    if (objects == nullptr || !objects->is(Kind::array)) {
        return archiveError("$objects is not an array");
    }
    const Value* top = archive.find(kTop);
    const Value* root = top == nullptr ? nullptr : top->find(kRoot);
    if (root == nullptr || !root->is(Kind::uid)) {
        return archiveError("$top has no root that is a UID");
    }
    return {};
}

} // namespace

tl::expected<Value, Error> KeyedUnarchiver::unarchiveObjectWithData(std::string_view data) {
    const tl::expected<PropertyListDocument, Error> list = PropertyList::propertyListWithData(data);
    if (!list) {
        return tl::unexpected(listError(list.error()));
    }
    const Value& archive = list->root;
    if (const Error error = checkFrame(archive)) {
        return tl::unexpected(error);
    }
    ObjectTable table(archive.find(archive_key::kObjects)->asArray(), data.size());
    const tl::expected<std::optional<Value>, Error> root =
        table.object(archive.find(archive_key::kTop)->find(archive_key::kRoot)->asUID());
    if (!root) {
        return tl::unexpected(root.error());
    }
    if (const std::optional<Value>& object = *root) {
        return *object;
    }
    return tl::unexpected(archiveError("the root is not an object (nil)"));
}

} // namespace qv
