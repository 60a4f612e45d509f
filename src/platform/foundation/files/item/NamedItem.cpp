#include "platform/foundation/files/item/NamedItem.h"

#include "platform/foundation/files/item/FileSystemPath.h"

#include <cerrno>

namespace qv {

NamedItem::NamedItem(URL url, const NamedItem& neighbour, const std::string& name)
    : url_(std::move(url)) {
    if (neighbour.place()) {
        place_ = placeBeside(*neighbour.place(), name);
    }
}

const tl::expected<std::string, Error>& NamedItem::path() const {
    if (!path_) {
        path_ = fileSystemPath(url_);
    }
    return *path_;
}

const tl::expected<ItemPlace, int>& NamedItem::place() const {
    if (!place_) {
        place_ = path() ? placeOf(*path()) : tl::unexpected(EINVAL);
    }
    return *place_;
}

tl::expected<Descriptor, Error> NamedItem::hold(LastLink last) const {
    if (!path()) {
        return tl::unexpected(path().error());
    }
    tl::expected<Descriptor, int> item =
        place_ && *place_ ? holdItem(**place_, last) : holdItem(*path(), last);
    return std::move(item).map_error([](int errorNumber) { return Error::posix(errorNumber); });
}

} // namespace qv
