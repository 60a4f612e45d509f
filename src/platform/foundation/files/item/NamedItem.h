#pragma once

#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/files/item/ItemPlace.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/URL.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>

namespace qv {

/// An item as an operation is told of it: a URL, and the place that it names, which is looked for
/// when it is first asked for, and held from then on. For one thread.
class NamedItem {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): a URL is the name of an item
    NamedItem(std::optional<URL> url) : url_(std::move(url)) {}
    /// An item beside another one, in the very folder that is held for that; where none is, what
    /// the URL names.
    NamedItem(URL url, const NamedItem& neighbour, const std::string& name);

    [[nodiscard]] const std::optional<URL>& url() const noexcept { return url_; }
    /// The path, with fileSystemPath()'s errors.
    [[nodiscard]] const tl::expected<std::string, Error>& path() const;
    /// Errors are placeOf()'s; EINVAL for an item without a path.
    [[nodiscard]] const tl::expected<ItemPlace, int>& place() const;
    /// Holds the item, in its place if that is held already. With path()'s errors, and holdItem()'s
    /// in NSPOSIXErrorDomain.
    [[nodiscard]] tl::expected<Descriptor, Error> hold(LastLink last = LastLink::follow) const;

private:
    std::optional<URL> url_;
    mutable std::optional<tl::expected<std::string, Error>> path_;
    mutable std::optional<tl::expected<ItemPlace, int>> place_;
};

} // namespace qv
