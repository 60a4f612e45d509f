#pragma once

#include "platform/foundation/values/URL.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace qv::test {

/// A fresh folder that goes away with its owner.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(
        const std::filesystem::path& parent = std::filesystem::temp_directory_path());
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    TemporaryDirectory(TemporaryDirectory&&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory&&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return path_ / name;
    }
    /// Writes a file below the folder, making the folders on the way, and gives its path.
    // NOLINTNEXTLINE(modernize-use-nodiscard): the write counts
    std::filesystem::path write(std::string_view name, std::string_view content) const;

private:
    std::filesystem::path path_;
};

/// The whole content of a file; empty when it cannot be read.
[[nodiscard]] std::string contentOf(const std::filesystem::path& file);

[[nodiscard]] std::optional<URL> urlOf(const std::filesystem::path& path);

} // namespace qv::test
