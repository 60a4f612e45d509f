#include "platform/foundation/files/manager/FileManager.h"

#include "platform/foundation/files/item/ItemPlace.h"
#include "support/Effort.h"
#include "support/ErrorMatchers.h"
#include "support/Repeated.h"
#include "support/SmallFileSystem.h"
#include "support/TemporaryDirectory.h"
#include "support/TreeListing.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <thread>

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::urlOf;

class FileManagerTest : public testing::Test {
protected:
    test::TemporaryDirectory top;
};

/// The ways to touch an item.
struct Operation {
    const char* name;
    Error (*call)(const std::optional<URL>& item, const std::optional<URL>& other);
};
constexpr Operation kOperations[] = {
    {"remove", [](const auto& item, const auto&) { return FileManager::removeItemAtURL(item); }},
    {"copy",
     [](const auto& item, const auto& other) { return FileManager::copyItemAtURL(item, other); }},
    {"move",
     [](const auto& item, const auto& other) { return FileManager::moveItemAtURL(item, other); }},
    {"copy to",
     [](const auto& item, const auto& other) { return FileManager::copyItemAtURL(other, item); }},
    {"move to",
     [](const auto& item, const auto& other) { return FileManager::moveItemAtURL(other, item); }},
};

TEST_F(FileManagerTest, RefusesURLsThatNameNoItem) {
    const std::string base = "file://" + top.path().native();
    const std::vector<std::pair<std::string, std::int64_t>> cases{
        {"http://host/canary", 262},
        {"file:", 4},
        {base + "%2Fcanary", 258},
        {base + "/canary%00.txt", 258},
        {"file:///", 512},
        {base + "/folder/..", 512},
        {base + "/folder/.", 512},
        {base + "/" + std::string(256, 'n'), 514},
        {base + "/" + test::repeated("d/", 2048) + "x", 514},
    };
    top.write("canary", "alive");
    top.write("folder/inner", "alive");
    const std::string before = test::listingOf(top.path());
    for (const Operation& operation : kOperations) {
        for (const auto& [text, whenWriting] : cases) {
            SCOPED_TRACE(std::string(operation.name) + " " + text);
            const Error error = operation.call(URL::URLWithString(text), urlOf(top / "canary/x"));
            EXPECT_EQ(error.domain(), error_domain::kCocoa);
            if (std::string_view(operation.name) == "remove") {
                EXPECT_EQ(error.code(), whenWriting);
            }
        }
        const Error error = operation.call(std::nullopt, urlOf(top / "other"));
        EXPECT_EQ(error.code(), 4) << operation.name;
    }
    EXPECT_EQ(test::listingOf(top.path()), before);
}

TEST_F(FileManagerTest, TellsWhatWentWrongAndWhere) {
    top.write("file", "f");
    top.write("folder/x", "x");
    const auto url = [&](std::string_view name) { return urlOf(top / name); };
    const auto remove = [](const auto& item) { return FileManager::removeItemAtURL(item); };
    const auto copy = [&](std::string_view from, std::string_view to) {
        return FileManager::copyItemAtURL(url(from), url(to));
    };
    const auto move = [&](std::string_view from, std::string_view to) {
        return FileManager::moveItemAtURL(url(from), url(to));
    };
    struct Row {
        Error error;
        std::int64_t code;
        int cause;
        std::string operation;
    };
    for (const Row& row : std::vector<Row>{
             {remove(url("none")), 4, ENOENT, "Remove"},
             {remove(url("file/x")), 512, ENOTDIR, "Remove"},
             {remove(urlOf("/proc/self")), 513, EPERM, "Remove"},
             {copy("none", "to"), 260, ENOENT, "Copy"},
             {copy("file", "folder/x"), 516, EEXIST, "Copy"},
             {copy("file", "none/to"), 4, ENOENT, "Copy"},
             {copy("folder", "file/to"), 512, ENOTDIR, "Copy"},
             {move("none", "to"), 4, ENOENT, "Move"},
             {move("file", "none/to"), 4, ENOENT, "Move"},
             {move("file", "folder"), 516, EEXIST, "Move"},
             {move("file", std::string(256, 'n')), 514, ENAMETOOLONG, "Move"},
         }) {
        SCOPED_TRACE(row.error.description());
        ASSERT_THAT(row.error, failsWith(error_domain::kCocoa, row.code));
        const Value info = row.error.userInfo();
        EXPECT_EQ(info.find("NSUnderlyingError")->asError(), Error::posix(row.cause));
        EXPECT_EQ(*info.find("NSUserStringVariant"), Value::array({Value::string(row.operation)}));
        EXPECT_TRUE(info.find("NSFilePath")->is(Value::Kind::string));
        EXPECT_EQ(info.find("NSDestinationFilePath") != nullptr, row.operation != "Remove");
    }
    const Error bytes = FileManager::removeItemAtURL(URL::URLWithString("file:///no/%FF"));
    EXPECT_EQ(*bytes.userInfo().find("NSFilePath"), Value::string("/no/\uFFFD"));
}

TEST_F(FileManagerTest, RemovesItemsAndNothingElse) {
    top.write("canary", "alive");
    top.write("tree/a/b", "x");
    top.write("tree/not \xFF UTF-8", "x");
    fs::create_symlink(top / "canary", top / "tree/link");
    fs::create_directory_symlink(top.path(), top / "tree/folder link");
    fs::create_symlink(top / "canary", top / "link");
    EXPECT_FALSE(FileManager::removeItemAtURL(urlOf(top / "link")));
    EXPECT_FALSE(fs::is_symlink(top / "link"));
    if (const test::SmallFileSystem mounted(top / "tree/mounted"); mounted.isMounted()) {
        top.write("tree/mounted/kept", "alive");
        const Error busy = FileManager::removeItemAtURL(urlOf(top / "tree"));
        EXPECT_EQ(busy.code(), 512);
        EXPECT_EQ(*busy.userInfo().find("NSFilePath"),
                  Value::string((top / "tree/mounted").native()));
        EXPECT_EQ(FileManager::removeItemAtURL(urlOf(top / "tree/mounted")).code(), 512);
        EXPECT_EQ(test::contentOf(mounted / "kept"), "alive");
    }
    EXPECT_FALSE(FileManager::removeItemAtURL(urlOf(top / "tree")));
    EXPECT_FALSE(fs::exists(top / "tree"));
    EXPECT_EQ(test::contentOf(top / "canary"), "alive");
}

TEST_F(FileManagerTest, CreatesFilesWhole) {
    EXPECT_TRUE(FileManager::createFileAtPath(urlOf(top / "new"), "content"));
    EXPECT_TRUE(FileManager::createFileAtPath(urlOf(top / "new"), "other"));
    EXPECT_EQ(test::contentOf(top / "new"), "other");
    fs::create_symlink(top / "new", top / "link");
    EXPECT_TRUE(FileManager::createFileAtPath(urlOf(top / "link"), "replaces the link"));
    EXPECT_EQ(test::contentOf(top / "new"), "other");
    fs::create_directory(top / "folder");
    EXPECT_FALSE(FileManager::createFileAtPath(urlOf(top / "folder"), "x"));
    EXPECT_FALSE(FileManager::createFileAtPath(urlOf(top / "none/x"), "x"));
    fs::create_symlink("nowhere", top / "dangling");
    EXPECT_FALSE(FileManager::fileExistsAtPath(urlOf(top / "dangling")));
    EXPECT_TRUE(FileManager::fileExistsAtPath(urlOf(top / "folder")));
    EXPECT_EQ(std::distance(fs::directory_iterator(top.path()), fs::directory_iterator()), 4)
        << "a temporary file was left";
}

// A thread exchanges a folder with a link to a canary tree while it is removed, copied from and
// copied into.
TEST_F(FileManagerTest, IsNotLedElsewhereByARace) {
    constexpr int kUsual = 700; // milliseconds for each of the three
    constexpr long kEnough = 10;
    const std::chrono::milliseconds duration(test::effort("QV_TEST_MILLISECONDS", kUsual));
    for (const std::string what : {"remove", "copy", "copy into"}) {
        const test::TemporaryDirectory work;
        work.write("outside/inner/canary", "alive");
        fs::create_directory_symlink(work / "outside", work / "swap");
        const fs::path folder = work / "tree/a";
        std::atomic<long> swaps = 0;
        std::jthread racer([&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                swaps += ::renameat2(AT_FDCWD, folder.c_str(), AT_FDCWD, (work / "swap").c_str(),
                                     RENAME_EXCHANGE) == 0;
            }
        });
        const auto end = std::chrono::steady_clock::now() + duration;
        // A busy machine gets the time that it needs for a few rounds; ctest's limit ends the rest.
        for (long rounds = 0;
             rounds < kEnough || swaps < kEnough || std::chrono::steady_clock::now() < end;
             ++rounds) {
            std::error_code ignored;
            fs::create_directories(work / "tree/a/inner/deep", ignored);
            if (what == "remove") {
                static_cast<void>(FileManager::removeItemAtURL(urlOf(work / "tree")));
            } else if (what == "copy") {
                static_cast<void>(
                    FileManager::copyItemAtURL(urlOf(work / "tree"), urlOf(work / "to")));
                ASSERT_FALSE(!fs::is_symlink(work / "to/a") &&
                             fs::exists(work / "to/a/inner/canary"))
                    << "what is outside was copied";
                static_cast<void>(FileManager::removeItemAtURL(urlOf(work / "to")));
            } else {
                static_cast<void>(FileManager::copyItemAtURL(
                    urlOf(work / "outside/inner/canary"), urlOf(work / "tree/a/inner/deep/new")));
            }
            ASSERT_EQ(test::contentOf(work / "outside/inner/canary"), "alive") << what;
        }
        racer.request_stop();
        racer.join();
    }
}

} // namespace
} // namespace qv
