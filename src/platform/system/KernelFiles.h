#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qv {

/// The files in which the kernel tells of the machine, or a copy of another machine's. Paths begin
/// below the root, without a slash: "proc/cpuinfo". Links are not followed. A copy may hold
/// anything: only its readable regular files are opened, so that nothing waits or acts.
class KernelFiles {
public:
    static constexpr std::size_t kLongestText = std::size_t{1} << 20U;

    /// `root` is an absolute path without a slash at its end; empty for this machine.
    explicit KernelFiles(std::string root) : root_(std::move(root)) {}

    [[nodiscard]] const std::string& root() const noexcept { return root_; }
    /// Whether system calls tell of the same machine.
    [[nodiscard]] bool areThisMachines() const noexcept { return root_.empty(); }

    /// Returns the content, of which at most `most` bytes; none if it cannot be read.
    [[nodiscard]] std::optional<std::string> read(const std::string& path,
                                                  std::size_t most = kLongestText) const;
    /// The same without the line feed at its end, if it has one.
    [[nodiscard]] std::optional<std::string> text(const std::string& path) const;
    [[nodiscard]] bool has(const std::string& path) const;
    /// The names in a folder, in no order; none at all if it cannot be read.
    [[nodiscard]] std::vector<std::string> namesIn(const std::string& folder) const;

private:
    [[nodiscard]] Descriptor open(const std::string& path, unsigned flags) const;

    std::string root_;
};

} // namespace qv
