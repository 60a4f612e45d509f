#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <tl/expected.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qv {

/// Goes down to a folder in which, and on the way to which, nobody can exchange anything but root
/// and one other owner: every folder from the root directory on belongs to one of them, cannot be
/// written by group or others, and is not a symbolic link. Errors are a sentence that names the
/// place, escaped.
class GuardedPath {
public:
    template <typename T> using Outcome = tl::expected<T, std::string>;
    enum class Place : std::uint8_t {
        ancestor, ///< a sticky folder of root will do: nobody can replace what root owns in it
        inside,
    };
    using Visitor = std::function<void(const std::string& path, Place place)>;

    /// `visitor`, if given, is told each path before it is opened.
    explicit GuardedPath(uid_t allowedOwner, Visitor visitor = {})
        : allowedOwner_(allowedOwner), visitor_(std::move(visitor)) {}

    /// An absolute path without `.` and `..`. The folder is opened with O_PATH.
    [[nodiscard]] Outcome<Descriptor> enter(const std::string& folder, Place last) const;
    /// Opens one folder below another; `path` is for the error.
    [[nodiscard]] Outcome<Descriptor> openFolder(int parent, const std::string& name,
                                                 const std::string& path, Place place) const;
    /// Judges owner and mode of an open file or folder.
    [[nodiscard]] Outcome<void> judge(int fd, const std::string& path, Place place) const;

    [[nodiscard]] static tl::unexpected<std::string> fault(std::string_view path,
                                                           std::string_view what);

private:
    uid_t allowedOwner_;
    Visitor visitor_;
};

} // namespace qv
