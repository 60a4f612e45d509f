// qvcatalog trust on the store of this build.

#include "client/AccessibilityTrust.h"
#include "platform/accessibility/TrustStore.h"
#include "tools/Command.h"

#include <fstream>
#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class TrustCommand : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: only root grants trust";
        }
        if (fs::exists(kState)) {
            fs::rename(kState, kAside);
        }
        fs::permissions(folder_.path(), fs::perms(0755));
    }
    void TearDown() override {
        if (::geteuid() == 0) {
            fs::remove_all(kState);
        }
        if (fs::exists(kAside)) {
            fs::rename(kAside, kState);
        }
    }
    [[nodiscard]] fs::path program(std::string_view name) const {
        fs::path path = folder_.write(name, "#!/bin/true\n");
        fs::permissions(path, fs::perms(0755));
        return path;
    }
    static ProgramRun trust(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "trust");
        return qvcatalog(std::move(arguments));
    }

    const fs::path kState = TrustStore::defaultFolder();
    const fs::path kAside = kState.native() + ".aside";
    const TemporaryDirectory folder_;
    TrustStore store_{TrustStore::defaultFolder(), 1000};
};

TEST_F(TrustCommand, ListsWhatWasGranted) {
    const ProgramRun nothing = trust({"list"});
    EXPECT_THAT(nothing, Succeeds());
    EXPECT_EQ(nothing.output, "");
    const fs::path one = program("one");
    const fs::path wild = program("wild\n\x1b[31m");
    ASSERT_FALSE(store_.grant(one));
    EXPECT_TRUE(store_.grant(wild)) << "no list holds an escape character";
    ASSERT_FALSE(TrustStore().grant(program("line\nend")));
    const ProgramRun list = trust({"list"});
    EXPECT_THAT(list, Succeeds());
    EXPECT_THAT(list.output, HasSubstr(one.native() + "\n  granted 20"));
    EXPECT_THAT(list.output, HasSubstr(" for user 1000, sha256 "));
    EXPECT_THAT(list.output, HasSubstr("line\\x0aend\n  granted 20"));
    const ProgramRun json = trust({"list", "--json"});
    EXPECT_THAT(json, Succeeds());
    EXPECT_EQ(python("import json,sys,hashlib\n"
                     "for p in json.load(sys.stdin):\n"
                     " print(ascii(p['path'].split('/')[-1]), p['requester'],"
                     " p['sha256']==hashlib.sha256(open(p['path'],'rb').read()).hexdigest())",
                     json.output),
              "'line\\nend' None True\n'one' 1000 True\n");
}

TEST_F(TrustCommand, ChecksProgramsAndProcesses) {
    const fs::path one = program("one");
    const auto expect = [](const ProgramRun& run, int status, const std::string& line) {
        EXPECT_EQ(run.status, status) << line;
        EXPECT_EQ(run.output, line + "\n");
        EXPECT_EQ(run.errors, "");
    };
    const std::string& path = one.native();
    expect(trust({"check", path}), 1, path + ": not trusted: trust was never granted");
    ASSERT_FALSE(store_.grant(one));
    expect(trust({"check", path}), 0, path + ": trusted");
    std::ofstream(one, std::ios::app) << "changed";
    expect(trust({"check", path}), 1,
           path + ": not trusted: the file has changed since trust was granted");
    fs::remove(one);
    expect(trust({"check", path}), 1,
           path + ": not trusted: it is no longer the file that trust was granted to: No such file "
                  "or directory");

    const std::string self = fs::read_symlink("/proc/self/exe");
    const std::string process = "process " + std::to_string(::getpid()) + " (" + self + "): ";
    const std::vector<std::string> check = {"check", "--pid", std::to_string(::getpid())};
    expect(trust(check), 1, process + "not trusted: trust was never granted");
    EXPECT_FALSE(isThisProcessTrusted());
    ASSERT_FALSE(store_.grant(self));
    expect(trust(check), 0, process + "trusted");
    EXPECT_TRUE(isThisProcessTrusted()) << "the library reads the same store";
    EXPECT_TRUE(isProcessTrusted(::getpid()));
    EXPECT_FALSE(isProcessTrusted(::getppid()));
    expect(trust({"check", "--pid", "0"}), 1, "process 0: not trusted: there is no such process");
}

TEST_F(TrustCommand, Revokes) {
    const fs::path one = program("one");
    EXPECT_THAT(trust({"revoke", one}), FailsWith(1, "/one: no trust was granted to it"));
    ASSERT_FALSE(store_.grant(one));
    const ProgramRun run = trust({"revoke", one});
    EXPECT_THAT(run, Succeeds());
    EXPECT_EQ(run.output, one.native() + ": trust revoked\n");
    EXPECT_TRUE(store_.list()->empty());
    fs::copy_file(QV_COMMAND, folder_ / "qvcatalog");
    EXPECT_THAT(runProgram({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                            folder_ / "qvcatalog", "trust", "revoke", one}),
                FailsWith(1, "/one: only root can revoke trust"));
}

TEST_F(TrustCommand, SaysWhatIsAmiss) {
    ASSERT_FALSE(store_.grant(program("one")));
    std::ofstream(kState / "accessibility/trusted.plist") << "{ version = 1; }";
    const std::string file = "accessibility/trusted.plist: \"version\" is not 1";
    EXPECT_THAT(trust({"list"}), FailsWith(2, file));
    EXPECT_THAT(trust({"check", folder_ / "one"}), FailsWith(2, file));
    EXPECT_THAT(trust({"check", "--pid", "1"}), FailsWith(2, file));
    EXPECT_THAT(trust({"revoke", folder_ / "one"}), FailsWith(1, file));
    EXPECT_THAT(trust({"check"}), FailsWith(2, "name a PATH or a process"));
    EXPECT_THAT(trust({"check", "x", "--pid", "1"}), FailsWith(2, "PATH"));
    EXPECT_THAT(trust({"revoke"}), FailsWith(2, "PATH"));
}

} // namespace
} // namespace qv::test
