#pragma once

#include "platform/accessibility/TrustStore.h"
#include "support/ErrorMatchers.h"
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
inline constexpr std::string_view kNever = "trust was never granted";

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
    /// A program that was granted trust.
    [[nodiscard]] fs::path granted(std::string_view name) {
        fs::path path = program(name);
        EXPECT_FALSE(store_.grant(path)) << name;
        return path;
    }
    static std::string textOf(const tl::expected<TrustVerdict, Error>& verdict) {
        if (!verdict) {
            return verdict.error().localizedDescription();
        }
        EXPECT_EQ(verdict->isTrusted, verdict->reason == "trusted");
        return verdict->reason;
    }
    [[nodiscard]] std::string verdictOn(const fs::path& path) const {
        return textOf(store_.check(path));
    }
    [[nodiscard]] std::vector<std::string> paths() const {
        std::vector<std::string> paths;
        for (const auto& [path, program] : store_.list().value_or(TrustList())) {
            paths.push_back(path);
        }
        return paths;
    }
    static int asNobody(const std::function<bool()>& work) {
        const pid_t child = ::fork();
        if (child == 0) {
            const bool isNobody = ::setresgid(kNobody, kNobody, kNobody) == 0 &&
                                  ::setresuid(kNobody, kNobody, kNobody) == 0;
            ::_exit(isNobody && work() ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return status;
    }

    const TemporaryDirectory folder_;
    const fs::path state_ = folder_ / "state";
    const fs::path file_ = state_ / "accessibility/trusted.plist";
    TrustStore store_{state_, 1000};
};

} // namespace qv::test
