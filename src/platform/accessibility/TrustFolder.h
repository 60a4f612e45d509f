#pragma once

#include "platform/accessibility/TrustList.h"
#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace qv {

/// Where the store is kept: `accessibility/trusted.plist` below a folder. Both folders and the file
/// belong to root and can be written by nobody else, else they count for nothing. Errors are of
/// kAXErrorDomain, CannotComplete, and name the place.
class TrustFolder {
public:
    /// None when there is none. Any user may.
    [[nodiscard]] static tl::expected<std::optional<TrustFolder>, Error>
    find(const std::string& state);
    /// Makes what is missing, for all to read; the folder above `state` must be there.
    [[nodiscard]] static tl::expected<TrustFolder, Error> make(const std::string& state);

    /// Empty when there is no store yet. Needs no lock: the file is replaced as a whole.
    [[nodiscard]] tl::expected<TrustList, Error> load() const;

    /// Nobody else changes the store while the descriptor lives. Then what a writer has left that
    /// was killed is removed.
    [[nodiscard]] tl::expected<Descriptor, Error> lock(std::chrono::milliseconds patience) const;
    /// Durable when it succeeds; when it fails the store is the old one. Under the lock only.
    [[nodiscard]] Error save(const TrustList& list) const;

private:
    TrustFolder(Descriptor folder, std::string path)
        : folder_(std::move(folder)), path_(std::move(path)) {}
    [[nodiscard]] Error removeLeftovers() const;
    [[nodiscard]] std::string pathOf(std::string_view name) const;

    Descriptor folder_;
    std::string path_; // for errors
};

} // namespace qv
