#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace qv::test {

/// A chain of folders "d" that begins below `root`, `files` files "f0"... in each. Freed without
/// a path that grows with it, and without help from what is tested.
class DeepTree {
public:
    DeepTree(const std::filesystem::path& root, int depth, int files) : root_(root) {
        Descriptor folder(::open(root.c_str(), O_DIRECTORY | O_CLOEXEC));
        for (int level = 0; level < depth; ++level) {
            if (!folder || ::mkdirat(folder.get(), "d", 0755) != 0) {
                throw std::runtime_error("mkdirat");
            }
            folder = Descriptor(::openat(folder.get(), "d", O_DIRECTORY | O_CLOEXEC));
            for (int file = 0; file < files; ++file) {
                const std::string name = "f" + std::to_string(file);
                if (::mknodat(folder.get(), name.c_str(), S_IFREG | 0644, 0) != 0) {
                    throw std::runtime_error("mknodat");
                }
            }
        }
    }
    ~DeepTree() {
        std::error_code none;
        for (std::filesystem::rename(root_ / "d", root_ / "top", none); !none;
             std::filesystem::rename(root_ / "next", root_ / "top", none)) {
            std::filesystem::rename(root_ / "top" / "d", root_ / "next", none);
            std::filesystem::remove_all(root_ / "top");
        }
    }
    DeepTree(const DeepTree&) = delete;
    DeepTree& operator=(const DeepTree&) = delete;
    DeepTree(DeepTree&&) = delete;
    DeepTree& operator=(DeepTree&&) = delete;

private:
    std::filesystem::path root_;
};

} // namespace qv::test
