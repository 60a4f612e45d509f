#include "platform/workspace/trash/TrashService.h"
#include "script/ScriptEngine.h"
#include "script/Steps.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::urlOf;
using Kind = TrashOutcome::Kind;

const Error kTrashError(error_domain::kCocoa, 3328, {});

/// A trash that does what a test wants.
class ScriptedTrash final : public TrashService {
public:
    TrashOutcome outcome{Kind::failed, "", kTrashError};
    std::optional<std::string> own;  ///< the folder that stands for the trash of the item's volume
    std::optional<std::string> home; ///< the folder that stands for the user's
    std::string origin;              ///< of the last item noted

    TrashOutcome trashItem(const ItemPlace& item) override {
        const fs::path path = item.path;
        if (!fs::exists(path)) {
            return {Kind::failed, "", kTrashError};
        }
        if (outcome.kind == Kind::moved) {
            fs::rename(path, *own + "/" + path.filename().native());
        }
        return outcome;
    }
    std::optional<TrashFolder> trashFolderFor(int /*item*/) override {
        return own ? std::optional(TrashFolder{*own, true}) : std::nullopt;
    }
    std::optional<std::string> homeTrashFolder() override { return home; }
    void noteOrigin(const std::string& /*pathInTrash*/, const ItemPlace& from) override {
        origin = from.path;
    }
};

class Files : public testing::Test {
protected:
    Files() {
        script.setIsPriviledged(true);
        ScriptEngine::of(script).services.trash = trash;
        fs::create_directory(folder / "trash");
    }
    [[nodiscard]] std::string read(std::string_view name) const {
        return fs::exists(folder / name) ? test::contentOf(folder / name) : "nothing";
    }
    [[nodiscard]] std::optional<URL> url(std::string_view name) const {
        return urlOf(folder / name);
    }
    void app(std::string_view name, std::string_view version, std::string_view content) {
        folder.write(std::string(name) + "/Contents/Info.plist",
                     "{ CFBundleVersion = \"" + std::string(version) + "\"; }");
        folder.write(std::string(name) + "/content", content);
    }
    test::TemporaryDirectory folder;
    std::shared_ptr<ScriptedTrash> trash = std::make_shared<ScriptedTrash>();
    QVCatalogScript script;
};

TEST_F(Files, AnswerThePlatformsErrors) {
    folder.write("a", "A");
    EXPECT_FALSE(script.copyItemFromURL(url("a"), url("b"), false, false));
    EXPECT_EQ(script.copyItemFromURL(url("a"), url("b"), false, false).code(), 516);
    EXPECT_FALSE(script.moveItemFromURL(url("b"), url("c"), false, true));
    EXPECT_EQ(script.moveItemFromURL(url("a"), url("c"), false, false).code(), 516);
    EXPECT_EQ(read("c"), "A");
    EXPECT_FALSE(script.removeItemAtURL(url("c")));
    EXPECT_EQ(script.removeItemAtURL(url("c")).code(), 4);
}

TEST_F(Files, CopyAtomicallyByAnotherName) {
    folder.write("a/inner", "A");
    EXPECT_FALSE(script.copyItemFromURL(url("a"), url("b"), false, true));
    EXPECT_EQ(read("b/inner"), "A");
    EXPECT_FALSE(fs::exists(folder / "._A_b"));
    // An item that stands under that name already makes the copy fail, and is removed then.
    folder.write("._A_c", "in the way");
    EXPECT_EQ(script.copyItemFromURL(url("a"), url("c"), false, true).code(), 516);
    EXPECT_FALSE(fs::exists(folder / "._A_c"));
    EXPECT_FALSE(fs::exists(folder / "c"));
    // The copy stays when only the last move fails.
    EXPECT_EQ(script.copyItemFromURL(url("a"), url("b"), false, true).code(), 516);
    EXPECT_EQ(read("._A_b/inner"), "A");
}

TEST_F(Files, AdaptOwnersBeforeTheyAreCopied) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "changing owners needs root";
    }
    folder.write("a/inner", "");
    folder.write("parent/x", "");
    ASSERT_EQ(::chown((folder / "parent").c_str(), 4711, 4712), 0);
    const auto owner = [&](std::string_view name) {
        struct stat info{};
        return ::lstat((folder / name).c_str(), &info) == 0 ? info.st_uid * 10'000 + info.st_gid
                                                            : 0;
    };
    EXPECT_EQ(script.copyItemFromURL(url("a"), url("parent/x"), true, false).code(), 516);
    EXPECT_EQ(owner("a/inner"), 47114712U) << "before the copy, which failed";
    EXPECT_EQ(script.moveItemFromURL(url("a"), url("missing/x"), true, false),
              Error::posix(ENOENT));
    EXPECT_FALSE(script.moveItemFromURL(url("a"), url("parent/moved"), true, false));
    EXPECT_EQ(owner("parent/moved"), 47114712U);
    fs::permissions(folder / "parent/moved/inner", fs::perms(04755));
    EXPECT_FALSE(script.moveItemFromURL(url("parent/moved"), url("parent/again"), true, false));
    EXPECT_EQ(fs::status(folder / "parent/again/inner").permissions(), fs::perms(04755))
        << "not changed, so that the kernel does not clear its bits";
}

TEST_F(Files, GiveArchivesFreeNames) {
    app("Foo.app", "2.1", "");
    const auto dated = folder.write("notes", "");
    const std::array<timeval, 2> day = {timeval{1335873600, 0}, timeval{1335873600, 0}};
    ASSERT_EQ(::utimes(dated.c_str(), day.data()), 0); // 2012-05-01 12:00 UTC
    folder.write("gone", "");
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"free.txt", "free.txt"},         {"Foo.app", "Foo (2.1).app"},
        {"Foo.app", "Foo (2.1 - 1).app"}, {"Foo.app", "Foo (2.1 - 2).app"},
        {"notes", "notes (2012-05-01)"},  {"notes", "notes (2012-05-01 - 1)"},
        {"missing/gone", "gone (0)"},
    };
    for (const auto& [item, name] : rows) {
        EXPECT_EQ(ScriptEngine::_smartArchiveNameItem(*url(item), *urlOf(folder.path()))
                      .lastPathComponent(),
                  name);
        folder.write(name, "");
    }
}

// A list that others hide must not show in a name.
TEST_F(Files, ReadVersionsInsideTheItemOnly) {
    folder.write("hidden/Info.plist", "{ CFBundleVersion = SECRET; }");
    folder.write("Foo.app/Resources/Info.plist", "{ CFBundleVersion = 3; }");
    fs::create_directory(folder / "Foo.app/Contents");
    fs::create_symlink("../../hidden/Info.plist", folder / "Foo.app/Contents/Info.plist");
    const auto name = [&] {
        return ScriptEngine::_smartArchiveNameItem(*url("Foo.app"), *urlOf(folder.path()))
            .lastPathComponent();
    };
    EXPECT_EQ(name(), "Foo (3).app");
    fs::remove(folder / "Foo.app/Contents/Info.plist");
    fs::create_symlink("../Resources/Info.plist", folder / "Foo.app/Contents/Info.plist");
    EXPECT_EQ(name(), "Foo (3).app") << "a link that stays inside is fine";
}

// The item's maker must not choose where root puts it.
TEST_F(Files, LetNoVersionChooseThePlace) {
    app("user/Foo.app", "/../../elsewhere/x", "old");
    app("new.app", "2", "new");
    fs::create_directories(folder / "user/Foo (");
    fs::create_directory(folder / "elsewhere");
    const Error refused = script.replaceItemAtURL(url("user/Foo.app"), url("new.app"), false);
    ASSERT_EQ(refused.code(), 4);
    EXPECT_EQ(refused.userInfo().find("NSUnderlyingError")->asError(), Error::posix(ENOENT));
    trash->home = folder / "user";
    EXPECT_EQ(script.trashItemAtURL(url("user/Foo.app")).code(), 4);
    EXPECT_EQ(read("user/Foo.app/content"), "old");
    EXPECT_TRUE(fs::is_empty(folder / "elsewhere"));
}

TEST_F(Files, SetOldItemAsideBeforeReplacing) {
    trash->outcome = {Kind::moved, "", {}};
    trash->own = folder / "trash";
    app("Foo.app", "1", "old");
    app("new/Foo.app", "2", "new");
    EXPECT_FALSE(script.replaceItemAtURL(url("Foo.app"), url("new/Foo.app"), false));
    EXPECT_EQ(read("Foo.app/content"), "new");
    EXPECT_EQ(read("new/Foo.app/content"), "new") << "copied, not moved";
    EXPECT_EQ(read("trash/Foo (1).app/content"), "old");
    EXPECT_EQ(script.replaceItemAtURL(url("Foo.app"), url("none"), false), Error::posix(ENOENT))
        << "there is nothing to re-own";
    EXPECT_EQ(read("Foo.app/content"), "new") << "the old one is back";
    EXPECT_EQ(script.replaceItemAtURL(url("missing"), url("new/Foo.app"), false).code(), 4);
    EXPECT_FALSE(fs::exists(folder / "missing")) << "nothing changed";
    trash->outcome = {Kind::failed, "", kTrashError};
    trash->own.reset();
    EXPECT_EQ(script.replaceItemAtURL(url("Foo.app"), url("new/Foo.app"), false), kTrashError);
    EXPECT_EQ(read("Foo.app/content"), "new")
        << "in place, although the old one is not in the trash";
}

TEST_F(Files, MoveWhatTheTrashRefuses) {
    folder.write("item", "kept");
    EXPECT_EQ(script.trashItemAtURL(url("item")), kTrashError) << "there is no trash folder";
    EXPECT_EQ(read("item"), "kept");
    trash->home = folder / "trash";
    folder.write("trash/item", "older");
    EXPECT_EQ(script.trashItemAtURL(url("item")), kTrashError) << "it survives the fallback";
    EXPECT_EQ(read("item"), "nothing");
    EXPECT_EQ(read("trash/item"), "older");
    EXPECT_EQ(trash->origin, (folder / "item").native());
    folder.write("other", "left");
    trash->outcome = {Kind::failedSilently, "", {}};
    EXPECT_FALSE(script.trashItemAtURL(url("other")));
    EXPECT_EQ(read("other"), "left") << "no fallback without an error";
    trash->own = folder / "own";
    fs::create_directory(*trash->own);
    trash->outcome = {Kind::failed, "", kTrashError};
    EXPECT_EQ(script.trashItemAtURL(url("other")), kTrashError);
    EXPECT_EQ(read("own/other"), "left") << "the volume's own comes first";
}

TEST_F(Files, AreMadeOrDatedByTouching) {
    folder.write("old", "content");
    fs::last_write_time(folder / "old", fs::file_time_type::clock::now() - std::chrono::hours(1));
    for (const char* name : {"fresh", "old", "."}) {
        EXPECT_FALSE(script.touchItemAtURL(url(name))) << name;
        struct stat info{};
        EXPECT_EQ(::stat((folder / name).c_str(), &info), 0);
        EXPECT_LT(::time(nullptr) - info.st_mtim.tv_sec, 60) << name;
        EXPECT_EQ(info.st_atim.tv_sec, info.st_mtim.tv_sec);
        EXPECT_EQ(info.st_atim.tv_nsec, info.st_mtim.tv_nsec);
    }
    EXPECT_EQ(read("fresh"), "");
    EXPECT_EQ(read("old"), "content");
    EXPECT_EQ(script.touchItemAtURL(url("no/such/folder")), Error::posix(ENOENT));
}

} // namespace
} // namespace qv
