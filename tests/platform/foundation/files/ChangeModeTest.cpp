#include "platform/foundation/files/item/ChangeMode.h"

#include "platform/foundation/os/Descriptor.h"
#include "support/InChild.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>

namespace qv {
namespace {

// From here on this process's calls of fchmodat2 fail so, as on an older kernel or under a filter
// of system calls that does not know it.
bool refuseNewCall(std::uint32_t errorNumber) {
    constexpr std::uint32_t kFchmodat2 = 452;
    std::array<sock_filter, 4> program{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kFchmodat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | errorNumber),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog filter{program.size(), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

class ChangeMode : public testing::Test {
protected:
    ChangeMode() {
        folder_.write("target", "");
        std::filesystem::permissions(folder_ / "target", std::filesystem::perms(0600));
        std::filesystem::create_symlink("target", folder_ / "link");
        parent_ = Descriptor(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    [[nodiscard]] unsigned mode() const {
        struct stat info{};
        return ::fstatat(parent_.get(), "target", &info, 0) == 0 ? info.st_mode & 07777U : 0;
    }
    [[nodiscard]] bool keepsItsPromise() const {
        const int descriptor = parent_.get();
        return changeModeNotFollowing(descriptor, "link", 0640) != 0 && errno == EOPNOTSUPP &&
               mode() == 0600 && changeModeNotFollowing(descriptor, "none", 0640) != 0 &&
               errno == ENOENT && changeModeNotFollowing(descriptor, "target", 0640) == 0 &&
               mode() == 0640 && changeModeNotFollowing(descriptor, "target", 0600) == 0;
    }
    test::TemporaryDirectory folder_;
    Descriptor parent_;
};

TEST_F(ChangeMode, NeverFollowsALinkOnAnyKernel) {
    EXPECT_TRUE(keepsItsPromise());
    for (const int errorNumber : {ENOSYS, EPERM}) {
        EXPECT_EQ(test::inChild([&] {
                      return refuseNewCall(static_cast<std::uint32_t>(errorNumber)) &&
                                     keepsItsPromise()
                                 ? EXIT_SUCCESS
                                 : EXIT_FAILURE;
                  }),
                  EXIT_SUCCESS)
            << errorNumber;
    }
}

} // namespace
} // namespace qv
