// Arbitrary text as the URL of an item: it is refused with a reason, or gives a path that a system
// call takes as it is, that a URL made of it leads back to, and whose parent and children are where
// they belong.

#include "platform/foundation/files/item/FileSystemPath.h"

#include <cstdlib>

namespace {

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const auto url = qv::URL::URLWithString(std::string(data, data + size));
    if (!url) {
        return 0;
    }
    const auto path = qv::fileSystemPath(url);
    if (!path) {
        require(path.error().domain() == qv::error_domain::kCocoa && path.error().code() != 0);
        require(!path.error().localizedDescription().empty());
        return 0;
    }
    require(path->starts_with('/') && path->find('\0') == std::string::npos);
    require(*path == "/" || !path->ends_with('/'));
    require(qv::fileSystemPath(qv::URL::fileURLWithPath(*path)) == path);
    if (url->encodedPath().find("//") != std::string_view::npos) {
        return 0; // the same places, but spelled in more ways than are worth comparing
    }
    const auto child = qv::fileSystemPath(url->URLByAppendingPathComponent("a b%2F;x"));
    require(child && *child == (*path == "/" ? "" : *path) + "/a b%2F;x");
    const auto parent = qv::fileSystemPath(url->URLByDeletingLastPathComponent());
    require(parent && (*path == "/" || path->starts_with(*parent) || path->ends_with("..")));
    static_cast<void>(url->lastPathComponent());
    static_cast<void>(url->pathExtension());
    return 0;
}
