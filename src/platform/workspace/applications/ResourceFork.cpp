#include "platform/workspace/applications/ResourceFork.h"

#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/plist/PropertyList.h"

#include <cstdint>
#include <sys/xattr.h>

namespace qv {

namespace {

// Numbers are big-endian in all of these formats.
std::optional<std::size_t> numberAt(std::string_view bytes, std::size_t offset, std::size_t size) {
    if (offset > bytes.size() || size > bytes.size() - offset) {
        return std::nullopt;
    }
    std::size_t number = 0;
    for (const char each : bytes.substr(offset, size)) {
        number = number << 8U | static_cast<std::uint8_t>(each);
    }
    return number;
}

std::optional<std::string_view> partOf(std::string_view bytes, std::optional<std::size_t> offset,
                                       std::optional<std::size_t> length) {
    if (!offset || !length || *offset > bytes.size() || *length > bytes.size() - *offset) {
        return std::nullopt;
    }
    return bytes.substr(*offset, *length);
}

// The bytes behind an offset that a field holds.
std::optional<std::string_view> rest(std::string_view bytes, std::size_t field) {
    const auto offset = numberAt(bytes, field, 2);
    return offset && *offset <= bytes.size() ? std::optional(bytes.substr(*offset)) : std::nullopt;
}

// The references to the resources of a type. A count is stored less one, so none is 0xFFFF.
std::optional<std::string_view> referencesOf(std::string_view map, std::string_view type) {
    constexpr std::size_t kTypeListField = 24;
    constexpr std::size_t kTypeLength = 8; // type, count, offset of the references
    const auto types = rest(map, kTypeListField);
    const auto last = types ? numberAt(*types, 0, 2) : std::nullopt;
    if (!types || !last) {
        return std::nullopt;
    }
    const std::size_t count = (*last + 1) & 0xFFFFU;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t place = 2 + i * kTypeLength;
        const auto entry = partOf(*types, place, kTypeLength);
        if (!entry) {
            return std::nullopt;
        }
        if (entry->starts_with(type) && numberAt(*entry, 4, 2) != 0xFFFFU) {
            return rest(*types, place + 6);
        }
    }
    return std::nullopt;
}

std::optional<std::string> attributeFork(const std::string& path) {
    constexpr const char* kName = "user.com.apple.ResourceFork";
    constexpr std::size_t kMost = std::size_t{64} << 10U; // the kernel's own bound
    std::string fork(kMost, '\0');
    const ssize_t length = ::getxattr(path.c_str(), kName, fork.data(), fork.size());
    if (length <= 0) {
        return std::nullopt;
    }
    fork.resize(static_cast<std::size_t>(length));
    return fork;
}

std::optional<std::string> contentOf(const std::string& path) {
    const Descriptor file = openRegularFile(path);
    return file ? contentOfRegularFile(file.get(), kLongestFork) : std::nullopt;
}

// The bytes of the resource, out of the first fork that has it.
std::optional<std::string> resourceOfItem(const std::string& root, const std::string& path,
                                          std::string_view type) {
    const auto placeOf = [&](const std::string& item) {
        return copiedPath(root, item).value_or("");
    };
    const auto resourceIn =
        [&](std::optional<std::string_view> fork) -> std::optional<std::string> {
        const auto data = fork ? firstResource(*fork, type) : std::nullopt;
        return data ? std::optional(std::string(*data)) : std::nullopt;
    };
    for (const auto& fork :
         {attributeFork(placeOf(path)), contentOf(placeOf(path + "/..namedfork/rsrc"))}) {
        if (std::optional<std::string> data = resourceIn(fork)) {
            return data;
        }
    }
    const std::size_t slash = path.rfind('/') + 1;
    for (const char* folder : {"", "__MACOSX/"}) {
        const auto file =
            contentOf(placeOf(path.substr(0, slash) + folder + "._" + path.substr(slash)));
        if (auto data = resourceIn(file ? forkInAppleDouble(*file) : std::nullopt)) {
            return data;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string_view> firstResource(std::string_view fork, std::string_view type) {
    constexpr std::size_t kDataOffsetInReference = 5;
    const auto data = partOf(fork, numberAt(fork, 0, 4), numberAt(fork, 8, 4));
    const auto map = partOf(fork, numberAt(fork, 4, 4), numberAt(fork, 12, 4));
    const auto references = data && map ? referencesOf(*map, type) : std::nullopt;
    const auto offset =
        references ? numberAt(*references, kDataOffsetInReference, 3) : std::nullopt;
    return offset ? partOf(*data, *offset + 4, numberAt(*data, *offset, 4)) : std::nullopt;
}

std::optional<std::string_view> forkInAppleDouble(std::string_view file) {
    constexpr std::string_view kBegin("\0\x05\x16\x07\0\x02\0\0", 8); // magic number, version 2
    constexpr std::size_t kCountField = 24;
    constexpr std::size_t kEntryLength = 12; // kind, offset, length
    constexpr std::size_t kResourceFork = 2;
    const auto count = numberAt(file, kCountField, 2);
    for (std::size_t i = 0; file.starts_with(kBegin) && count && i < *count; ++i) {
        const std::size_t entry = kCountField + 2 + i * kEntryLength;
        const auto kind = numberAt(file, entry, 4);
        if (!kind) {
            break; // the file ends here
        }
        if (*kind == kResourceFork) {
            return partOf(file, numberAt(file, entry + 4, 4), numberAt(file, entry + 8, 4));
        }
    }
    return std::nullopt;
}

tl::expected<std::optional<Value>, std::string> resourceListOfItem(const std::string& path,
                                                                   const std::string& root) {
    const std::optional<std::string> data = resourceOfItem(root, path, "plst");
    if (!data) {
        return std::nullopt;
    }
    auto list = PropertyList::propertyListWithData(*data);
    if (list) {
        return std::move(list->root);
    }
    const Value info = list.error().userInfo();
    return tl::unexpected(std::string(info.find(error_key::kDebugDescription)->asString()));
}

} // namespace qv
