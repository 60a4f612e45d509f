#pragma once

#include "platform/foundation/os/Descriptor.h"

#include <fmt/core.h>

#include <array>
#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/fuse.h>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace qv::test {

/// A file system whose server answers nothing but that it is there, and that `/open` can be opened:
/// a process that asks for anything else, or closes that file, hangs in the kernel until this ends,
/// and cannot be killed. Needs root and FUSE.
class SilentFileSystem {
public:
    explicit SilentFileSystem(const std::filesystem::path& at)
        : at_(at), device_(::open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
        std::filesystem::create_directory(at);
        const auto options =
            fmt::format("fd={},rootmode=40000,user_id=0,group_id=0,allow_other", device_.get());
        isMounted_ = ::mount("silent", at.c_str(), "fuse", 0, options.c_str()) == 0;
        if (isMounted_) {
            server_ = std::thread([this] { serve(); });
        }
    }
    SilentFileSystem(const SilentFileSystem&) = delete;
    SilentFileSystem& operator=(const SilentFileSystem&) = delete;
    SilentFileSystem(SilentFileSystem&&) = delete;
    SilentFileSystem& operator=(SilentFileSystem&&) = delete;
    ~SilentFileSystem() { end(); }

    /// Returns false where FUSE is not available.
    [[nodiscard]] bool isThere() const { return isMounted_; }
    /// Waits until somebody closes `/open`.
    void waitUntilClosed() const { isClosed_.wait(false); }
    /// All processes that hang get an error.
    void end() {
        if (server_.joinable()) {
            ::umount2(at_.c_str(), MNT_FORCE | MNT_DETACH);
            server_.join();
            device_.reset();
        }
    }

private:
    template <typename Answer> void answer(const fuse_in_header& request, const Answer& content) {
        std::array<char, sizeof(fuse_out_header) + sizeof content> bytes{};
        const fuse_out_header header{
            .len = static_cast<std::uint32_t>(bytes.size()), .error = 0, .unique = request.unique};
        std::memcpy(bytes.data(), &header, sizeof header);
        std::memcpy(bytes.data() + sizeof header, &content, sizeof content);
        static_cast<void>(::write(device_.get(), bytes.data(), bytes.size()));
    }
    void serve() {
        std::array<char, FUSE_MIN_READ_BUFFER * 20> bytes{};
        while (::read(device_.get(), bytes.data(), bytes.size()) > 0) {
            fuse_in_header request{};
            std::memcpy(&request, bytes.data(), sizeof request);
            const std::string_view name = bytes.data() + sizeof request;
            if (request.opcode == FUSE_INIT) {
                fuse_init_out init{};
                init.major = FUSE_KERNEL_VERSION;
                init.minor = FUSE_KERNEL_MINOR_VERSION;
                init.max_write = 4096;
                answer(request, init);
            } else if (request.opcode == FUSE_LOOKUP && name == "open") {
                fuse_entry_out entry{};
                entry.nodeid = 2;
                entry.attr.mode = S_IFREG | 0644;
                entry.attr.nlink = 1;
                answer(request, entry);
            } else if (request.opcode == FUSE_OPEN) {
                answer(request, fuse_open_out{});
            } else if (request.opcode == FUSE_FLUSH) {
                isClosed_ = true;
                isClosed_.notify_all();
            }
        }
    }

    std::filesystem::path at_;
    Descriptor device_;
    bool isMounted_ = false;
    std::atomic<bool> isClosed_ = false;
    std::thread server_;
};

} // namespace qv::test
