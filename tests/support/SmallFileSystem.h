#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <sys/mount.h>

namespace qv::test {

/// A file system at a folder, for as long as this lives. Needs root.
class SmallFileSystem {
public:
    using Mount = std::function<bool(const std::string& folder)>;

    /// The file system that a function mounts there; the function tells whether it could.
    SmallFileSystem(std::filesystem::path folder, const Mount& mount) : folder_(std::move(folder)) {
        std::filesystem::create_directory(folder_);
        mounted_ = mount(folder_);
    }
    /// A tmpfs of a few mebibytes.
    explicit SmallFileSystem(std::filesystem::path folder, int mebibytes = 1)
        : SmallFileSystem(std::move(folder), [&](const std::string& at) {
              const std::string size = "size=" + std::to_string(mebibytes) + "m";
              return ::mount("tmpfs", at.c_str(), "tmpfs", 0, size.c_str()) == 0;
          }) {}
    SmallFileSystem(const SmallFileSystem&) = delete;
    SmallFileSystem& operator=(const SmallFileSystem&) = delete;
    SmallFileSystem(SmallFileSystem&&) = delete;
    SmallFileSystem& operator=(SmallFileSystem&&) = delete;
    ~SmallFileSystem() {
        if (mounted_) {
            EXPECT_EQ(::umount2(folder_.c_str(), MNT_DETACH), 0);
        }
    }
    [[nodiscard]] bool isMounted() const { return mounted_; }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return folder_ / name;
    }

private:
    std::filesystem::path folder_;
    bool mounted_ = false;
};

} // namespace qv::test
