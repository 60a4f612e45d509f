#include "script/Steps.h"
#include "support/InChild.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace qv {
namespace {

using test::text;
using test::urlOf;

struct stat statusOf(const std::filesystem::path& path) {
    struct stat info{};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

unsigned modeOf(const std::filesystem::path& path) { return statusOf(path).st_mode & 07777U; }

class Ownership : public testing::Test {
protected:
    Ownership() { script.setIsPriviledged(true); }
    test::TemporaryDirectory folder;
    QVCatalogScript script;
};

TEST_F(Ownership, ChangesTreesAndNothingBelowLinks) {
    const auto outside = folder.write("outside/file", "");
    folder.write("outside/folder/inner", "");
    folder.write("tree/sub/deep/file", "");
    folder.write("tree/.hidden", "");
    create_symlink(outside, folder / "tree/link");
    create_symlink(folder / "outside/folder", folder / "tree/folderlink");
    ASSERT_FALSE(script.changeModeOfItem(urlOf(folder / "tree"), 0711, true));
    for (const char* name : {"tree", "tree/sub", "tree/sub/deep", "tree/sub/deep/file",
                             "tree/.hidden", "outside/file", "outside/folder"}) {
        EXPECT_EQ(modeOf(folder / name), 0711U) << name;
    }
    EXPECT_NE(modeOf(folder / "outside/folder/inner"), 0711U) << "links are not walked through";
}

TEST_F(Ownership, IgnoresFailuresBelowTheTop) {
    folder.write("tree/file", "");
    create_symlink("/nonexistent/target", folder / "tree/dangling");
    for (const char* name : {"tree", "tree/file"}) { // a file has nothing below it
        EXPECT_FALSE(script.changeModeOfItem(urlOf(folder / name), 0700, true));
        EXPECT_EQ(modeOf(folder / "tree/file"), 0700U);
    }
    for (const bool recursive : {true, false}) {
        EXPECT_EQ(script.changeModeOfItem(urlOf(folder / "missing"), 0700, recursive),
                  Error::posix(ENOENT));
    }
}

TEST_F(Ownership, ReadsOwnerAndMode) {
    const auto file = folder.write("file", "");
    std::filesystem::permissions(file, std::filesystem::perms(0640));
    std::uint32_t user = 12345;
    std::uint16_t mode = 0;
    EXPECT_EQ(QVCatalogScript::readOwnershipOfItem(urlOf(folder / "none"), &user, nullptr),
              Error::posix(ENOENT));
    EXPECT_EQ(user, 12345U) << "nothing is written on failure";
    EXPECT_FALSE(QVCatalogScript::readOwnershipOfItem(urlOf(file), &user, nullptr));
    EXPECT_EQ(user, ::geteuid());
    EXPECT_FALSE(QVCatalogScript::readModeOfItem(urlOf(file), &mode));
    EXPECT_EQ(mode, S_IFREG | 0640U) << "file-type bits included";
}

TEST_F(Ownership, AppliesASavedOwnerRecursively) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "changing owners needs root";
    }
    const auto model = folder.write("model", "");
    const auto other = folder.write("other", "");
    const auto outside = folder.write("outside", "");
    folder.write("tree/sub/file", "");
    create_symlink(outside, folder / "tree/link");
    ASSERT_EQ(::chown(model.c_str(), 65534, 65533), 0);
    EXPECT_EQ(script.applyOwnerAndGroupOfURL(urlOf(folder / "tree"), true, text("m")),
              Error::withDescription(kCatalogScriptErrorDomain, 0, "saveID doesn't exist"));
    ASSERT_FALSE(script.saveOwnerAndGroupOfURL(urlOf(other), text("m")));
    ASSERT_FALSE(script.saveOwnerAndGroupOfURL(urlOf(model), text("m"))) << "the second save wins";
    ASSERT_FALSE(script.applyOwnerAndGroupOfURL(urlOf(folder / "tree"), true, text("m")));
    for (const char* name : {"tree", "tree/sub", "tree/sub/file", "outside"}) {
        EXPECT_EQ(statusOf(folder / name).st_uid, 65534U) << name;
        EXPECT_EQ(statusOf(folder / name).st_gid, 65533U) << name;
    }
    EXPECT_EQ(statusOf(folder / "tree/link").st_uid, 0U) << "the link's target, not the link";
    ASSERT_FALSE(script.changeOwnershipOfItem(urlOf(folder / "tree"), 0, 0, false));
    EXPECT_EQ(statusOf(folder / "tree").st_uid, 0U);
    EXPECT_EQ(statusOf(folder / "tree/sub").st_uid, 65534U) << "not recursive";
}

// The kernel would take the set-ID bits and the capability, and set the date of the change.
TEST_F(Ownership, TouchesNoItemWithThatOwner) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "capabilities need root";
    }
    const auto helper = folder.write("tree/helper", "");
    ASSERT_EQ(::chmod(helper.c_str(), 06755), 0);
    constexpr std::array<std::uint32_t, 5> kNetRaw = {0x02000001, 1U << 13U};
    ASSERT_EQ(::setxattr(helper.c_str(), "security.capability", kNetRaw.data(), sizeof kNetRaw, 0),
              0);
    const timespec changed = statusOf(helper).st_ctim;
    ASSERT_FALSE(script.saveOwnerAndGroupOfURL(urlOf(helper), text("m")));
    for (const Error& error :
         {script.applyOwnerAndGroupOfURL(urlOf(folder / "tree"), true, text("m")),
          script.changeOwnershipOfItem(urlOf(helper), 0, 0xFFFFFFFF, false)}) {
        EXPECT_FALSE(error);
        EXPECT_EQ(modeOf(helper), 06755U);
        EXPECT_EQ(::getxattr(helper.c_str(), "security.capability", nullptr, 0), sizeof kNetRaw);
        EXPECT_EQ(statusOf(helper).st_ctim.tv_nsec, changed.tv_nsec);
    }
}

// The new mode is what lets its owner in.
TEST_F(Ownership, OpensLockedFolderOfItsOwner) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    folder.write("tree/file", "");
    for (const auto& [name, mode] : {std::pair{"tree", 0}, {"tree/file", 0600}, {".", 0755}}) {
        ASSERT_EQ(::chown((folder / name).c_str(), 4711, 4711), 0);
        ASSERT_EQ(::chmod((folder / name).c_str(), static_cast<mode_t>(mode)), 0);
    }
    EXPECT_EQ(test::inChildAs(4711,
                              [&] {
                                  return script.changeModeOfItem(urlOf(folder / "tree"), 0750, true)
                                             ? 1
                                             : 0;
                              }),
              0);
    EXPECT_EQ(modeOf(folder / "tree/file"), 0750U);
}

// Every descendant that fails is tried again, without rights, as an operation of its own.
TEST_F(Ownership, RetriesDescendantsOneByOne) {
    create_symlink(::geteuid() == 0 ? "/nonexistent/target" : "/", folder / "dangling");
    QVCatalogScript direct;
    std::vector<Value> handedOver;
    direct.setPriviledgedExecutionBlock([&](QVCatalogScript&, const Value& steps, Error*,
                                            const Value**) { handedOver.push_back(steps); });
    ASSERT_FALSE(direct.changeModeOfItem(urlOf(folder.path()), 0700, true));
    ASSERT_EQ(handedOver.size(), 1U);
    const Value& step = handedOver[0].asArray()[3];
    EXPECT_EQ(step.find("URL")->asString(), urlOf(folder / "dangling")->absoluteString());
    EXPECT_EQ(*step.find("arg2"), Value::boolean(false));
}

} // namespace
} // namespace qv
