#include "script/ExtractionTools.h"
#include "script/ScriptEngine.h"
#include "support/InChild.h"
#include "support/SmallFileSystem.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sched.h>
#include <unistd.h>

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::contentOf;
using test::urlOf;

/// The class methods, over stand-ins that note what they are given.
class Archives : public testing::Test {
protected:
    Archives() {
        tools.archiveTool = tool("archiver", "cat >\"$3/unpacked\"");
        tools.diskImageTool = tool(
            "imager", "case $1 in attach) mkdir -p \"$5\" && cp -R $(dirname $0)/image/. \"$5\""
                      ";; detach) rm -r \"$3\"; exit 9;; esac");
        tools.volumesFolder = folder / "volumes";
        folder.write("image/App.app/Contents/Info.plist",
                     "{ CFBundleIdentifier = \"com.example.App\"; }");
        folder.write("image/.hidden", "");
        folder.write("Update.DMG", "image");
        folder.write("Archive.Zip", std::string(3'000'000, 'z'));
    }
    [[nodiscard]] std::string tool(const std::string& name, const std::string& does) const {
        const fs::path path =
            folder.write(name, "#!/bin/sh\necho \"$*\" >>$(dirname $0)/calls\n" + does + "\n");
        fs::permissions(path, fs::perms(0755));
        return path;
    }
    [[nodiscard]] std::optional<URL> url(std::string_view name) const {
        return urlOf(folder / name);
    }
    // The path of an item that the methods made; removed with the test.
    fs::path path(const std::optional<URL>& made) {
        const fs::path found = made ? made->path().value_or("") : "";
        if (made && !found.native().starts_with(folder.path().native())) {
            moved.push_back(found);
        }
        return found;
    }
    void TearDown() override {
        for (const fs::path& each : moved) {
            fs::remove_all(each);
        }
    }
    test::TemporaryDirectory folder;
    ExtractionTools tools;
    std::vector<fs::path> moved;
};

std::string text(const Error& error) { return error ? error.localizedDescription() : "none"; }

TEST_F(Archives, ExtractByExtensionInAnyCase) {
    EXPECT_EQ(text(QVCatalogScript::copyAndExtractFile({}, nullptr, {})),
              "extractFile: file (null) has no suffix, couldn't determine file type");
    if (::geteuid() != 0) {
        GTEST_SKIP() << "what stays behind stays on a file system that needs root";
    }
    const test::SmallFileSystem small(folder / "small", 8);
    const std::optional<URL> volume = urlOf(small / "");
    std::optional<URL> location;
    EXPECT_FALSE(ScriptEngine::copyAndExtractFile(url("Archive.Zip"), &location, volume, tools));
    EXPECT_EQ(contentOf(path(location) / "unpacked"), std::string(3'000'000, 'z'));
    EXPECT_FALSE(ScriptEngine::copyAndExtractFile(url("Update.DMG"), &location, volume, tools));
    const fs::path root = path(location);
    EXPECT_TRUE(fs::exists(root / "App.app/Contents/Info.plist"));
    EXPECT_FALSE(fs::exists(root / ".hidden"));
    EXPECT_FALSE(fs::exists(root.parent_path() / "Update.DMG")) << "the copy";

    for (const auto& [name, expected] :
         {std::pair("Update.tar", " is of unknown type tar"), {"Update", " is of unknown type "}}) {
        const Error error = ScriptEngine::copyAndExtractFile(url(name), &location, volume, tools);
        EXPECT_EQ(text(error), "extractFile: file " + url(name)->absoluteString() + expected);
        EXPECT_EQ(error.domain(), kCatalogScriptErrorDomain);
        EXPECT_FALSE(location);
    }
    const fs::path base = small / ".TemporaryItems/folders.0/TemporaryItems";
    EXPECT_EQ(std::distance(fs::directory_iterator(base), {}), 4) << "all folders stay";
}

TEST_F(Archives, MountImagesAndAlwaysDetachThem) {
    std::optional<URL> root;
    std::optional<URL> found;
    EXPECT_FALSE(
        ScriptEngine::extractDMG(url("Update.DMG"), &root, "COM.example.app", &found, tools));
    EXPECT_EQ(path(root).parent_path(), folder.path());
    EXPECT_EQ(path(found), path(root) / "App.app");
    EXPECT_THAT(contentOf(folder / "calls"),
                testing::MatchesRegex("attach -quiet -nobrowse -mountpoint " + tools.volumesFolder +
                                      "/[-0-9A-F]+ " + (folder / "Update.DMG").native() +
                                      "\ndetach -force " + tools.volumesFolder + "/[-0-9A-F]+\n"));
    EXPECT_EQ(ScriptEngine::extractDMG(url("Update.DMG"), nullptr, {}, &found, tools).code(), 4)
        << "there is no root to copy to";
    EXPECT_FALSE(found);
    EXPECT_TRUE(fs::is_empty(tools.volumesFolder));

    EXPECT_EQ(text(QVCatalogScript::extractDMG(url("Archive.Zip"), nullptr, {}, nullptr)),
              "extractDMG: not a DMG file");
    tools.diskImageTool = tool("broken", "exit 3");
    EXPECT_EQ(ScriptEngine::extractDMG(url("Update.DMG"), &root, {}, nullptr, tools),
              Error::posix(3));
    EXPECT_FALSE(root);
    tools.diskImageTool = folder / "missing";
    EXPECT_EQ(text(ScriptEngine::extractDMG(url("Update.DMG"), &root, {}, nullptr, tools)),
              "hdiTask=nil");
}

TEST_F(Archives, SurviveAToolThatDiesEarly) {
    for (const auto& [does, status] :
         {std::pair("exit 7", 7), {"head -c 9 >/dev/null; kill -9 $$", 9}}) {
        tools.archiveTool = tool("dies", does);
        // The test runs in a child with the usual reaction to a broken pipe, which is to end.
        EXPECT_EQ(test::inChild([&] {
                      std::signal(SIGPIPE, SIG_DFL); // NOLINT(cert-err33-c)
                      const Error error =
                          ScriptEngine::extractZIP(url("Archive.Zip"), url("out"), tools);
                      return text(error) == "extractZIP: ditto returned with status code " +
                                                std::to_string(status);
                  }),
                  1);
    }
    EXPECT_FALSE(ScriptEngine::extractZIP(url("missing.zip"), url("out"), tools))
        << "nothing is reported";
    EXPECT_EQ(ScriptEngine::extractZIP(url("Archive.Zip"), {}, tools).code(), 4);
    tools.archiveTool = folder / "missing";
    EXPECT_EQ(text(ScriptEngine::extractZIP(url("Archive.Zip"), url("out"), tools)),
              "dittoTask=nil");
}

TEST_F(Archives, MakeFoldersOnTheVolumeAsked) {
    std::optional<URL> made;
    EXPECT_FALSE(QVCatalogScript::createTemporaryFolder(&made, {}));
    EXPECT_THAT(path(made).native(), testing::MatchesRegex("/tmp/[0-9a-f]{10}"));
    EXPECT_FALSE(QVCatalogScript::createTemporaryFolder(&made, url("missing")));
    EXPECT_EQ(path(made).parent_path(), "/tmp");
    if (::geteuid() != 0) {
        GTEST_SKIP() << "mounting needs root";
    }
    const test::SmallFileSystem small(folder / "small");
    ASSERT_TRUE(small.isMounted());
    EXPECT_FALSE(QVCatalogScript::createTemporaryFolder(&made, urlOf(small / "")));
    const fs::path base = small / ".TemporaryItems/folders.0/TemporaryItems";
    EXPECT_EQ(path(made).parent_path(), base);
    EXPECT_EQ(std::distance(fs::directory_iterator(base), {}), 1) << "the other one was removed";
    // The result is the folder of the new names where no name can be made.
    EXPECT_EQ(test::inChild([&] {
                  const bool isReadOnly =
                      ::unshare(CLONE_NEWNS) == 0 &&
                      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                      ::mount("tmpfs", "/tmp", "tmpfs", MS_RDONLY, nullptr) == 0;
                  const Error error = QVCatalogScript::createTemporaryFolder(&made, {});
                  return isReadOnly && error.code() == 642 && path(made) == "/tmp" ? 1 : 0;
              }),
              1);
}

TEST_F(Archives, FindTheFirstBundleOutsidePackages) {
    const auto bundle = [&](const std::string& at, const std::string& identifier) {
        folder.write("tree/" + at + "/Contents/Info.plist",
                     "{ CFBundleIdentifier = \"" + identifier + "\"; }");
    };
    bundle("a/.deep/Wanted.app", "com.example.Wanted");
    bundle("Outer.app/Inner.app", "com.example.Inner");
    bundle("plain", "com.example.Plain");
    fs::create_directory_symlink(folder / "image", folder / "tree/link");
    const auto found = [&](std::string_view identifier) {
        return path(QVCatalogScript::findBundleWithIdentifier(identifier, url("tree")));
    };
    EXPECT_EQ(found("COM.EXAMPLE.wanted"), folder / "tree/a/.deep/Wanted.app");
    EXPECT_EQ(found("com.example.plain"), folder / "tree/plain");
    EXPECT_EQ(found("com.example.Inner"), "") << "inside a package";
    EXPECT_EQ(found("com.example.App"), "") << "behind a link";
    EXPECT_EQ(found(""), "");
    EXPECT_FALSE(QVCatalogScript::findBundleWithIdentifier("x", url("missing")));
}

} // namespace
} // namespace qv
