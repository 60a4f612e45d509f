#include "platform/imager/SevenZip.h"
#include "support/BuildFolder.h"
#include "support/SmallFileSystem.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::comesTrue;
using test::contentOf;
using test::runProgram;
using testing::HasSubstr;

std::string shownItem(const fs::directory_entry& item) {
    if (item.is_symlink()) {
        return "-> " + fs::read_symlink(item).native();
    }
    if (item.is_directory()) {
        return "folder";
    }
    const bool isProgram = (item.status().permissions() & fs::perms::owner_exec) != fs::perms::none;
    return std::to_string(std::hash<std::string>()(contentOf(item))) + (isProgram ? "*" : "");
}

// The items of a tree: kinds, targets of links, contents.
std::map<std::string, std::string> treeOf(const fs::path& root) {
    std::map<std::string, std::string> tree;
    for (const auto& item : fs::recursive_directory_iterator(root)) {
        if (item.path().filename() != "lost+found") {
            tree[item.path().lexically_relative(root)] = shownItem(item);
        }
    }
    return tree;
}

// In a mount namespace of its own, which takes what a failing test might leave mounted.
class DiskImages : public testing::Test {
protected:
    static void SetUpTestSuite() {
        isReady = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0 &&
                  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    static void TearDownTestSuite() {
        std::error_code ignored; // other programs of the build may use them
        fs::remove(volumes, ignored);
        fs::remove(records, ignored);
    }
    void SetUp() override {
        if (!isReady) {
            GTEST_SKIP() << "needs root";
        }
        fs::create_directories(volumes);
        folder.write("tree/hello", "hello");
        fs::permissions(folder / "tree/hello", fs::perms(0755));
        folder.write("tree/.hidden", std::string(700'000, '\0') + std::string(300'000, 'x'));
        folder.write("tree/d\u00e9/caf\u00e9", "composed");
        fs::create_symlink("/Applications", folder / "tree/Applications");
        fs::create_symlink("../../hello", folder / "tree/d\u00e9/up");
        before = traces();
    }
    void TearDown() override {
        if (isReady) {
            EXPECT_TRUE(comesTrue([&] { return traces() == before; })) << traces();
        }
    }

    // Everything that this test's images leave while they last: other programs have some too.
    [[nodiscard]] std::string traces() const {
        std::string text;
        std::error_code ignored;
        const auto note = [&](const std::string& item) {
            text += item.find(folder.path().filename()) == std::string::npos ? "" : item + "\n";
        };
        std::istringstream mounts(contentOf("/proc/self/mountinfo"));
        for (std::string mount; std::getline(mounts, mount);) {
            note(mount);
        }
        for (const fs::path& each : {volumes, records}) {
            for (const auto& entry : fs::directory_iterator(each, ignored)) {
                note(entry.path());
            }
        }
        for (const auto& device : fs::directory_iterator("/sys/block")) {
            note(contentOf(device.path() / "loop/backing_file"));
        }
        for (const auto& entry : fs::directory_iterator(folder.path())) {
            note(entry.path().filename().native().starts_with('.') ? entry.path() : "");
        }
        return text;
    }
    void make(const std::string& command) const {
        const std::string place = "cd " + folder.path().native() + "; ";
        const std::string tool = "disk_image() { " QV_IMAGER_TESTS "/disk_image.py \"$@\"; }; ";
        const auto run = runProgram({"/bin/bash", "-ec", place + tool + command}, "",
                                    {"PATH=/usr/sbin:/usr/bin", "LANG=C.UTF-8"});
        ASSERT_EQ(run.status, 0) << command << run.errors;
    }
    [[nodiscard]] std::vector<std::string> attaching(const std::string& image,
                                                     const fs::path& at) const {
        return {imager, "attach", "-quiet", "-nobrowse", "-mountpoint", at, folder / image};
    }
    static int detach(const fs::path& at) {
        return runProgram({imager, "detach", "-force", at}).status;
    }
    // The program 7zz is this script, or missing, while the result lives.
    [[nodiscard]] std::unique_ptr<test::SmallFileSystem> replaceTool(const std::string& script) {
        const fs::path tool = folder.write("usr/bin/7zz", script);
        fs::permissions(tool, fs::perms(0755));
        if (script.empty()) {
            fs::remove(tool);
            EXPECT_EQ(::mknod(tool.c_str(), S_IFCHR, 0), 0); // hides what is below
        }
        const std::string layers = "lowerdir=" + (folder / "usr").native() + ":/usr";
        return std::make_unique<test::SmallFileSystem>("/usr", [&](const std::string& at) {
            return ::mount("overlay", at.c_str(), "overlay", 0, layers.c_str()) == 0;
        });
    }

    static inline bool isReady = false;
    static inline const std::string imager = test::built("bin/QVCatalogImager");
    static inline const fs::path volumes = test::built("Volumes");
    static inline const fs::path records = test::built("run/images");
    test::TemporaryDirectory folder;
    fs::path mountPoint = volumes / folder.path().filename();
    std::string before;
};

constexpr const char* kSquashFS = "mksquashfs tree v -quiet -no-progress; ";
constexpr const char* kExt4 = "mkfs.ext4 -q -d tree v 4M; ";
constexpr const char* kISO = "xorriso -as mkisofs -quiet -R -V NAME -o v tree 2>&1; ";
constexpr const char* kHFSPlus = "xorriso -as mkisofs -quiet -hfsplus -V NAME -o iso tree 2>&1; "
                                 "7zz x -tapm -oapm iso || true; mv apm/HFSPLUS_Hybrid.hfs v; ";
// 4 MiB of the volume from 2 MiB on, named by the first entry of a table of four.
constexpr const char* kPartition =
    "truncate -s 6M i.dmg; put() { dd of=i.dmg bs=1 seek=$1 conv=notrunc status=none; }; "
    "printf '\\0\\0\\0\\0\\203\\0\\0\\0\\0\\20\\0\\0\\0\\40\\0\\0' | put 446; "
    "printf '\\125\\252' | put 510; dd if=v of=i.dmg seek=4096 conv=notrunc status=none";

TEST_F(DiskImages, ShowTheirContent) {
    const std::vector<std::pair<const char*, std::string>> recipes = {
        {kSquashFS, "disk_image v i.dmg zlib"},
        {kHFSPlus, "disk_image v i.dmg bzip2"},
        {kHFSPlus, "disk_image v i.dmg xz"},
        {kExt4, "disk_image v i.dmg raw"},
        {kHFSPlus, "disk_image v i.dmg lzvn"},
        {kISO, "disk_image v i.dmg zlib"},
        {kSquashFS, "mv v i.dmg"},
        {kExt4, "mv v i.dmg"},
        {kHFSPlus, "mv v i.dmg"},
        {kISO, "mv v i.dmg; chmod 0 i.dmg"},
        {kExt4, kPartition},
        {kISO, kPartition}};
    for (const auto& [volume, image] : recipes) {
        SCOPED_TRACE(volume + image);
        make("rm -rf v iso apm i.dmg; " + std::string(volume) + image);
        const auto run = runProgram(attaching("i.dmg", mountPoint));
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(treeOf(mountPoint), treeOf(folder / "tree"));
        EXPECT_THAT(contentOf("/proc/self/mountinfo"),
                    HasSubstr(mountPoint.native() + " ro,nosuid,nodev"));
        EXPECT_EQ(detach(mountPoint), 0);
        EXPECT_TRUE(comesTrue([&] { return traces() == before; })) << traces();
    }
}

TEST_F(DiskImages, RefuseWhatIsDamagedOrForeign) {
    const test::SmallFileSystem small(folder / "small");
    const std::string usual = traces();
    make(std::string(kExt4) + "disk_image v small/large.dmg zlib");
    make("rm v; " + std::string(kSquashFS) +
         "disk_image v good.dmg zlib; disk_image v sum.dmg raw checksum; "
         "disk_image v seven.dmg bzip2; "
         "head -c -300 good.dmg >cut.dmg; cp good.dmg bit.dmg; "
         "printf '\\377\\377' | dd of=bit.dmg seek=200 bs=1 conv=notrunc;"
         "(echo -n encrcdsa; head -c 9000 /dev/urandom) >locked.dmg; "
         "echo text >text.dmg; mkdir full full/item folder.dmg");
    const std::vector<std::array<std::string, 3>> cases = {
        {"sum.dmg", mountPoint, "unpacking"},
        {"bit.dmg", mountPoint, "unpacking"},
        {"cut.dmg", mountPoint, "recognising"},
        {"locked.dmg", mountPoint, "recognising"},
        {"text.dmg", mountPoint, "recognising"},
        {"folder.dmg", mountPoint, "opening"},
        {"none.dmg", mountPoint, "opening"},
        {"good.dmg", folder / "full", "not empty"},
        {"good.dmg", folder / "no/m", "mount point"},
        {"small/large.dmg", mountPoint, "No space left"}};
    for (const auto& [image, at, cause] : cases) {
        SCOPED_TRACE(image);
        const auto run = runProgram(attaching(image, at));
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(std::ranges::count(run.errors, '\n'), 1);
        EXPECT_THAT(run.errors, HasSubstr((folder / image).native()));
        EXPECT_THAT(run.errors, HasSubstr(cause));
        EXPECT_EQ(traces(), usual);
    }
    EXPECT_EQ(treeOf(small / "").size(), 1U) << "the image";
    const auto noTool = replaceTool("");
    EXPECT_THAT(runProgram(attaching("seven.dmg", mountPoint)).errors, HasSubstr("cannot be run"));
}

TEST_F(DiskImages, AreReadByConfinedProgram) {
    make(std::string(kSquashFS) + "disk_image v i.dmg bzip2");
    // A sanitized build filters no system calls.
    const auto tool = replaceTool(
        std::string("#!/usr/bin/sh\n[ ! -O /usr ] && [ ! -e /etc ] && [ ! -e /proc ] && "
                    "[ ! -w /image ] && [ ! -w /usr ] && [ ! -w / ] && ") +
        (test::isSanitized() ? "" : "! kill -0 $$ && ") + "! ulimit -t 99999\n");
    EXPECT_THAT(runProgram(attaching("i.dmg", mountPoint)).errors, HasSubstr("image is empty"));
}

TEST_F(DiskImages, DetachWhileFilesAreOpen) {
    make(std::string(kSquashFS) + "mv v i.dmg");
    ASSERT_EQ(runProgram(attaching("i.dmg", mountPoint)).status, 0);
    EXPECT_EQ(runProgram(attaching("i.dmg", mountPoint)).status, 1);
    std::ifstream file(mountPoint / "hello");
    EXPECT_EQ(detach(mountPoint), 0);
    EXPECT_FALSE(fs::exists(mountPoint));
    std::string text;
    EXPECT_TRUE(file >> text && text == "hello");
    EXPECT_EQ(detach(mountPoint), 1);
}

TEST_F(DiskImages, DetachOnlyTheirOwnMounts) {
    const test::SmallFileSystem other(folder / "other");
    EXPECT_EQ(detach(other / ""), 1);
    EXPECT_EQ(runProgram({imager, "detach"}).status, 1);
    EXPECT_EQ(runProgram({imager, "--version", "-force"}).status, 1);
    EXPECT_EQ(runProgram({imager, "--version"}).status, 0);
    fs::create_directory(mountPoint);
    ASSERT_EQ(::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(detach(mountPoint), 0); // its record may be lost
    fs::create_directory_symlink(folder / "other", mountPoint);
    EXPECT_EQ(detach(mountPoint), 1);
    fs::remove(mountPoint);
}

TEST_F(DiskImages, LeaveNothingOfKilledAttachment) {
    make(std::string(kSquashFS) + "disk_image v i.dmg bzip2");
    const auto tool = replaceTool("#!/usr/bin/sh\n: >/content/begun; exec /usr/bin/sleep 60\n");
    const std::string usual = traces();
    test::StartedProgram attach({.command = attaching("i.dmg", mountPoint)});
    ASSERT_TRUE(comesTrue([&] {
        return std::ranges::any_of(fs::recursive_directory_iterator(folder.path()),
                                   [](auto& each) { return each.path().filename() == "begun"; });
    }));
    attach.kill();
    EXPECT_EQ(attach.wait(), -SIGKILL);
    EXPECT_EQ(detach(mountPoint), 0);
    EXPECT_EQ(traces(), usual);
}

TEST_F(DiskImages, GiveUpOnToolThatHangs) {
    const auto tool = replaceTool("#!/usr/bin/sh\nexec /usr/bin/sleep 60\n");
    const Descriptor file(::open(folder.write("i.dmg", "x").c_str(), O_RDONLY | O_CLOEXEC));
    fs::create_directory(folder / "content");
    const Descriptor content(::open((folder / "content").c_str(), O_RDONLY | O_CLOEXEC));
    const Error error =
        imager::unpack(file.get(), "Dmg", content.get(), std::chrono::milliseconds(500));
    EXPECT_THAT(error.localizedDescription(), HasSubstr("made no progress"));
}

TEST_F(DiskImages, NeedReaderInUserNamespace) {
    make(std::string(kSquashFS) + "disk_image v i.dmg zlib");
    std::vector<std::string> command = attaching("i.dmg", mountPoint);
    command.insert(command.begin(), {"/usr/bin/unshare", "--map-root-user"});
    EXPECT_THAT(runProgram(command).errors, HasSubstr("maps no user and group 47112"));
}

TEST_F(DiskImages, EndWithTheProcessThatAttachedThem) {
    make(std::string(kHFSPlus) + "mv v i.dmg");
    std::vector<std::string> command = {"/bin/sh", "-c", "\"$0\" \"$@\"; exit 7"};
    for (const std::string& word : attaching("i.dmg", mountPoint)) {
        command.push_back(word);
    }
    ASSERT_EQ(runProgram(command).status, 7);
    EXPECT_NE(traces(), before);
    const fs::path second = mountPoint.native() + "-2";
    EXPECT_EQ(runProgram(attaching("i.dmg", second)).status, 0);
    EXPECT_FALSE(fs::exists(mountPoint));
    EXPECT_EQ(detach(second), 0);
}

TEST_F(DiskImages, AreCopiedForOrdinaryUsers) {
    constexpr uid_t kUser = 47115;
    const test::SmallFileSystem run("/run");
    fs::create_directories("/run/user/47115");
    make(std::string(kHFSPlus) + "disk_image v i.dmg zlib; chmod 755 .; mkdir own; mv i.dmg own; "
                                 "chown -R 47115:47115 own /run/user/47115");
    const fs::path at = folder / "own/m";
    test::StartedProgram attach({.command = attaching("own/i.dmg", at), .user = kUser});
    EXPECT_EQ(attach.wait(), 0);
    EXPECT_EQ(treeOf(at), treeOf(folder / "tree"));
    test::StartedProgram detaching({.command = {imager, "detach", "-force", at}, .user = kUser});
    EXPECT_EQ(detaching.wait(), 0);
    EXPECT_EQ(treeOf(folder / "own").size(), 1U);
    EXPECT_TRUE(fs::is_empty("/run/user/47115/qvcatalog-images"));
}

} // namespace
} // namespace qv
