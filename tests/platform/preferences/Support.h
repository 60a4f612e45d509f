#pragma once

#include "platform/preferences/PreferenceFiles.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <unistd.h>

namespace qv::test {

inline constexpr uid_t kNobody = 65534; ///< the group's number as well

inline const std::string kAnyHost(preferences::kAnyHost);
inline const std::string kThisHost(preferences::kCurrentHost);
inline const std::string kMe(preferences::kCurrentUser);
inline const std::string kAnyone(preferences::kAnyUser);

inline PreferencesDomain mine(const std::string& application) {
    return {application, kMe, kAnyHost};
}

inline Value text(std::string_view utf8) { return Value::string(utf8); }

/// A machine with two users, ourselves and "other", whose number is that of nobody, and with a
/// folder for any user.
class PreferencesTest : public testing::Test {
protected:
    PreferencesTest() {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else is there yet
        ::unsetenv("XDG_CONFIG_HOME");
        std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
        std::filesystem::create_directory(home_);
        std::filesystem::create_directory(otherHome_);
        if (::geteuid() == 0) {
            EXPECT_EQ(::chown(otherHome_.c_str(), kNobody, kNobody), 0);
        }
    }

    [[nodiscard]] PreferenceEnvironment environment() const {
        PreferenceEnvironment all;
        all.anyUserFolder = anyUsers_;
        all.userNamed = [home = home_,
                         other = otherHome_](const std::string& name) -> std::optional<UserRecord> {
            if (name == "other") {
                return UserRecord{kNobody, kNobody, name, other, ""};
            }
            if (name == "homeless") {
                return UserRecord{kNobody, kNobody, name, other / "nowhere", ""};
            }
            if (name == "me") {
                return UserRecord{::geteuid(), ::getegid(), name, home, ""};
            }
            return std::nullopt;
        };
        all.userNumbered = [home = home_](uid_t user) -> std::optional<UserRecord> {
            return UserRecord{user, ::getegid(), "me", home, ""};
        };
        all.lockPatience = std::chrono::milliseconds(100);
        return all;
    }

    /// Notes and stores one value; the text of the failure, or nothing.
    std::string set(const std::string& key, const std::optional<Value>& value,
                    const PreferencesDomain& domain) {
        preferences_.setValue(key, value, domain);
        return sync(domain);
    }
    std::string sync(const PreferencesDomain& domain) {
        const Error error = preferences_.synchronize(domain);
        if (error) {
            EXPECT_EQ(error.domain(), error_domain::kPOSIX);
            EXPECT_NE(error.code(), 0);
        }
        return error ? error.localizedDescription() : "";
    }

    /// The names in a folder without that of the lock.
    static std::set<std::string> namesIn(const std::filesystem::path& folder) {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.insert(entry.path().filename());
        }
        names.erase(".qvcatalog-preferences.lock");
        return names;
    }

    TemporaryDirectory folder_;
    std::filesystem::path home_ = folder_ / "home";
    std::filesystem::path otherHome_ = folder_ / "other";
    std::filesystem::path anyUsers_ = folder_ / "everybody";
    std::filesystem::path config_ = home_ / ".config";
    PreferenceFiles preferences_{environment()};
};

} // namespace qv::test
