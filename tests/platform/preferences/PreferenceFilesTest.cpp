// The file of each domain, the values that a program sees, and the domains that are refused.

#include "platform/foundation/process/Support.h"
#include "platform/preferences/Support.h"

#include <fmt/core.h>

#include <cerrno>
#include <sys/stat.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

class PreferenceFilesTest : public PreferencesTest {
protected:
    // The only file that setting a value in a domain makes, relative to the folder; its mode after
    // it.
    std::string fileOf(const PreferencesDomain& domain) {
        std::string failure = set("key", Value::string("value"), domain);
        if (!failure.empty()) {
            return failure;
        }
        std::string file;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path())) {
            if (entry.path().extension() == ".plist") {
                struct stat info{};
                EXPECT_EQ(::lstat(entry.path().c_str(), &info), 0);
                EXPECT_EQ(info.st_uid, ::geteuid());
                file +=
                    fmt::format("{} {:o}", entry.path().lexically_relative(folder_.path()).native(),
                                info.st_mode & 07777U);
            }
        }
        EXPECT_EQ(preferences_.copyValue("key", domain), Value::string("value"));
        EXPECT_EQ(set("key", std::nullopt, domain), "") << "which removes the file";
        return file;
    }
};

// A Swift program looks at just these files.
TEST_F(PreferenceFilesTest, EachDomainHasItsFile) {
    ::umask(077); // must not count
    const std::string global(preferences::kAnyApplication);
    const std::string own(preferences::kCurrentApplication);
    EXPECT_EQ(fileOf({"a.b", kMe, kAnyHost}), "home/.config/a.b.plist 600");
    EXPECT_EQ(fileOf({"a.b", kMe, kThisHost}), "home/.config/ByHost/a.b..plist 600");
    EXPECT_EQ(fileOf({"a.b", kMe, "box.example"}), "home/.config/a.b.box.example.plist 600");
    EXPECT_EQ(fileOf({"a.b", "me", kAnyHost}), "home/.config/a.b.plist 600");
    EXPECT_EQ(fileOf({"a.b", kAnyone, kAnyHost}), "everybody/a.b.plist 644");
    EXPECT_EQ(fileOf({"a.b", kAnyone, kThisHost}), "everybody/ByHost/a.b.plist 644");
    EXPECT_EQ(fileOf({"a.b", kAnyone, "box"}), "everybody/a.b.box.plist 644");
    EXPECT_EQ(fileOf({global, kMe, kAnyHost}), "home/.config/.GlobalPreferences.plist 600");
    EXPECT_EQ(fileOf({global, kMe, kThisHost}),
              "home/.config/ByHost/.GlobalPreferences..plist 600");
    EXPECT_EQ(fileOf({own, kMe, kAnyHost}), "home/.config/platform_preferences.plist 600");
    EXPECT_EQ(fileOf({std::string(249, 'x'), kMe, kAnyHost}),
              "home/.config/" + std::string(249, 'x') + ".plist 600");
    EXPECT_EQ(fileOf({"...", kMe, kAnyHost}), "home/.config/....plist 600");
    struct stat info{};
    for (const auto& [folder, mode] :
         std::map<std::filesystem::path, mode_t>{{config_, 0700},
                                                 {config_ / "ByHost", 0700},
                                                 {anyUsers_, 0755},
                                                 {anyUsers_ / "ByHost", 0755}}) {
        EXPECT_EQ(::lstat(folder.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, mode) << folder;
    }
    ::umask(022);
}

// Nothing that comes in a script may name a file elsewhere.
TEST_F(PreferenceFilesTest, RefusesBadDomainsTouchingNothing) {
    using namespace std::string_literals;
    const std::vector<std::pair<PreferencesDomain, std::string>> rows = {
        {{std::nullopt, kMe, kAnyHost}, "missing"},
        {{"a", std::nullopt, kAnyHost}, "missing"},
        {{"a", kMe, std::nullopt}, "missing"},
        {mine(""), "name of an application"},
        {mine("."), "name of an application"},
        {mine(".."), "name of an application"},
        {mine("/etc/x"), "name of an application"},
        {mine("a\0b"s), "name of an application"},
        {mine(std::string(250, 'x')), "255"},
        {{"a", kMe, ""}, "name of a host"},
        {{"a", kMe, ".."}, "name of a host"},
        {{"a", kMe, "/../../x"}, "name of a host"},
        {{"a", kMe, "b\0c"s}, "name of a host"},
        {{"a", "nobody like that", kAnyHost}, "no user"},
        {{"a", "", kAnyHost}, "no user"},
        {{"a", "me\0"s, kAnyHost}, "no user"},
    };
    for (const auto& [domain, why] : rows) {
        EXPECT_THAT(set("key", text("x"), domain), HasSubstr(why));
        EXPECT_FALSE(preferences_.copyValue("key", domain));
        EXPECT_FALSE(preferences_.values(domain));
    }
    EXPECT_FALSE(std::filesystem::exists(config_));
    EXPECT_FALSE(std::filesystem::exists(anyUsers_));
    EXPECT_EQ(namesIn(folder_.path()), (std::set<std::string>{"home", "other"}));
}

TEST_F(PreferenceFilesTest, UsersNeedExistingHomes) {
    std::filesystem::remove(home_);
    EXPECT_EQ(set("key", text("x"), mine("a")), home_.native() + ": No such file or directory");
    EXPECT_NE(set("key", std::nullopt, mine("a")), "") << "nothing to remove, but no home";
    PreferenceEnvironment without = environment();
    without.userNumbered = [](uid_t) { return std::nullopt; };
    EXPECT_THAT(PreferenceFiles(without).synchronize(mine("a")).localizedDescription(),
                HasSubstr("does not know"));
    without.userNumbered = [](uid_t) { return UserRecord{0, 0, "x", "", ""}; };
    EXPECT_THAT(PreferenceFiles(without).synchronize(mine("a")).localizedDescription(),
                HasSubstr("no home"));
}

// The environment of a program is chosen by the user who started it; root does not obey it.
TEST_F(PreferenceFilesTest, IgnoresFolderFromEnvironmentAsRoot) {
    const auto storedAs = [&](uid_t user) {
        return inChild([&]() -> std::string {
            // NOLINTNEXTLINE(concurrency-mt-unsafe): alone in the child
            ::setenv("XDG_CONFIG_HOME", (otherHome_ / "xdg").c_str(), 1);
            if (::geteuid() != user && ::setresuid(user, user, user) != 0) {
                return "no such user";
            }
            return set("key", text("x"), mine(user == 0 ? "root" : "user"));
        });
    };
    if (::geteuid() == 0) {
        EXPECT_EQ(storedAs(0), "");
        EXPECT_TRUE(std::filesystem::exists(config_ / "root.plist"));
    }
    EXPECT_EQ(storedAs(::geteuid() == 0 ? kNobody : ::geteuid()), "");
    EXPECT_EQ(namesIn(otherHome_ / "xdg"), std::set<std::string>{"user.plist"});
}

// The first of eight files that has the key.
TEST_F(PreferenceFilesTest, ApplicationsSeeNearestValue) {
    const std::string global(preferences::kAnyApplication);
    std::vector<PreferencesDomain> order;
    for (const std::string& user : {kMe, kAnyone}) {
        for (const std::string& application : {std::string("app"), global}) {
            order.push_back({application, user, kThisHost});
            order.push_back({application, user, kAnyHost});
        }
    }
    EXPECT_FALSE(preferences_.copyAppValue("key", "app"));
    for (std::size_t i = order.size(); i-- > 0;) {
        ASSERT_EQ(set("key", Value::integer(static_cast<std::int64_t>(i)), order[i]), "");
        EXPECT_EQ(preferences_.copyAppValue("key", "app"),
                  Value::integer(static_cast<std::int64_t>(i)));
    }
    EXPECT_EQ(preferences_.copyAppValue("key", "another"), Value::integer(2));
    EXPECT_FALSE(preferences_.copyAppValue("no key", "app"));
    EXPECT_EQ(preferences_.copyAppValue("key", "../app"), Value::integer(2))
        << "no domain of its own, but those for any application";
}

// A noted value belongs to one domain, counts when that is synchronized, and then is gone.
TEST_F(PreferenceFilesTest, NotedValuesWaitForTheirDomain) {
    preferences_.setValue("one", text("1"), mine("a"));
    preferences_.setValue("two", text("x"), mine("a"));
    preferences_.setValue("two", text("2"), mine("a"));
    preferences_.setValue("gone", text("3"), mine("a"));
    preferences_.setValue("gone", std::nullopt, mine("a"));
    preferences_.setValue("one", text("b's"), mine("b"));
    EXPECT_EQ(sync(mine("c")), "");
    EXPECT_FALSE(preferences_.copyValue("one", mine("a"))) << "not stored yet";
    EXPECT_EQ(sync(mine("a")), "");
    EXPECT_EQ(preferences_.values(mine("a")).value(),
              Value::dictionary({{"one", text("1")}, {"two", text("2")}}));
    EXPECT_EQ(preferences_.values(mine("b")).value(), std::nullopt);
    preferences_.setValue(std::nullopt, text("x"), mine("a"));
    preferences_.setValue("three", text("3"), mine("a"));
    EXPECT_THAT(sync(mine("a")), HasSubstr("without a key"));
    EXPECT_EQ(sync(mine("a")), "") << "a failure forgets what was noted";
    EXPECT_FALSE(preferences_.copyValue("three", mine("a")));
}

} // namespace
} // namespace qv::test
