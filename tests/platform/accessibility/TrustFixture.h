#pragma once

#include "platform/accessibility/TrustStore.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace qv::test {

namespace fs = std::filesystem;
using testing::HasSubstr;

inline constexpr uid_t kNobody = 65534;

/// A store in a folder of its own, and programs to be put into it.
class TrustTest : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: only root grants trust";
        }
        fs::permissions(folder_.path(), fs::perms(0755));
    }

    [[nodiscard]] fs::path program(std::string_view name, std::string_view content = "#!/bin/true",
                                   unsigned mode = 0755) const {
        const fs::path path = folder_.write(name, content);
        fs::permissions(path, fs::perms(mode));
        return path;
    }
    /// Of a path; fails the test where that cannot be found out.
    [[nodiscard]] Trust trustIn(const fs::path& path) const {
        const auto verdict = store_.check(path);
        EXPECT_TRUE(verdict) << (verdict ? "" : verdict.error().localizedDescription());
        return verdict ? verdict->trust : Trust::neverGranted;
    }
    [[nodiscard]] std::string reasonAt(const fs::path& path) const {
        const auto verdict = store_.check(path);
        return verdict ? verdict->reason : verdict.error().localizedDescription();
    }
    [[nodiscard]] std::vector<std::string> paths() const {
        std::vector<std::string> paths;
        const auto list = store_.list();
        EXPECT_TRUE(list) << (list ? "" : list.error().localizedDescription());
        for (const TrustedProgram& one : list.value_or(std::vector<TrustedProgram>())) {
            paths.push_back(one.path);
        }
        return paths;
    }
    /// What there is beside the store and its lock.
    [[nodiscard]] std::size_t leftovers() const {
        std::size_t count = 0;
        for (const auto& item : fs::directory_iterator(file_.parent_path())) {
            count += item.path() == file_ || item.path().filename() == "lock" ? 0U : 1U;
        }
        return count;
    }
    /// The exit status of a child process that does it.
    static int inChild(const std::function<int()>& work) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::_exit(work());
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static int asNobody(const std::function<int()>& work) {
        return inChild([&] {
            return ::setresgid(kNobody, kNobody, kNobody) == 0 &&
                           ::setresuid(kNobody, kNobody, kNobody) == 0
                       ? work()
                       : 99;
        });
    }

    const TemporaryDirectory folder_;
    const fs::path state_ = folder_ / "state";
    const fs::path file_ = state_ / "accessibility/trusted.plist";
    TrustStore store_{state_, 1000};
};

} // namespace qv::test
