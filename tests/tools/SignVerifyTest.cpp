// qvcatalog sign and verify on real programs, with the anchors of this build.

#include "support/TestAuthority.h"
#include "tools/Command.h"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

const std::string kGood = QV_LIVE_PROGRAMS "/wire_puppet";

class SignAndVerify : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: looks into processes, and the anchors are root's";
        }
        std::filesystem::copy_file(QV_WIRE_PUPPET, program_);
        signer_ = stranger_.requestIn(folder_ / "keys");
    }

    // The arguments of a signature that works, but for what `changes` say.
    ProgramRun sign(const std::vector<std::string>& more = {},
                    const std::vector<std::string>& left = {}) const {
        std::vector<std::string> arguments = {"sign", program_};
        const std::vector<std::pair<std::string, std::string>> options = {
            {"--identifier", "com.larkwen.QVCatalogHelper"},
            {"--team", "T4KQ8ZP3WM"},
            {"--certificate", signer_.certificatePath},
            {"--key", signer_.keyPath},
            {"--intermediate", signer_.intermediatePaths.front()}};
        for (const auto& [name, value] : options) {
            if (std::ranges::find(left, name) == left.end()) {
                arguments.insert(arguments.end(), {name, value});
            }
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return qvcatalog(arguments);
    }
    // A refusal that leaves the program as it was.
    void expectRefused(const ProgramRun& run, int status, std::string_view why) const {
        EXPECT_THAT(run, FailsWith(status, why));
        EXPECT_EQ(contentOf(program_), contentOf(QV_WIRE_PUPPET)) << why;
        EXPECT_EQ(run.errors.find(program_), run.errors.rfind(program_)) << "named twice";
    }

    TemporaryDirectory folder_;
    std::string program_ = folder_ / "program";
    TestAuthority stranger_;
    SigningRequest signer_;
};

TEST_F(SignAndVerify, AGoodProgramIsAcceptable) {
    const ProgramRun run = qvcatalog({"verify", kGood});
    EXPECT_THAT(run, Succeeds());
    EXPECT_THAT(run.output, HasSubstr("acceptable: signed, satisfies the requirement, debuggable"));
    EXPECT_THAT(run.output, HasSubstr("com.larkwen.QVCatalogHelper"));
    const ProgramRun json = qvcatalog({"verify", kGood, "--json"});
    EXPECT_EQ(python("import json,sys\nj=json.load(sys.stdin)\n"
                     "print(j['accepted'],len(j['findings'])>0)",
                     json.output),
              "True True\n");
    EXPECT_EQ(qvcatalog({"verify", kGood, "--requirement", "identifier other"}).status, 1);
}

TEST_F(SignAndVerify, WhatIsWrongWithAProgramIsTold) {
    const auto verdict = [](const std::string& file) {
        const ProgramRun run = qvcatalog({"verify", file});
        EXPECT_EQ(run.status, 1) << file;
        EXPECT_EQ(run.errors, "") << file;
        return run.output;
    };
    EXPECT_THAT(verdict(program_), HasSubstr("refused: "));
    EXPECT_THAT(verdict(program_), HasSubstr("not signed"));
    EXPECT_THAT(verdict(folder_.write("text", "no program")), HasSubstr("refused: "));
    EXPECT_THAT(sign({"--flags", "hard,kill"}), Succeeds());
    EXPECT_THAT(verdict(program_), HasSubstr("anchor apple generic")) << "a stranger";
    const std::string changed = folder_ / "changed";
    std::string content = contentOf(kGood);
    content[content.find("this text may be changed")] = 'T';
    std::ofstream(changed, std::ios::binary) << content;
    EXPECT_THAT(verdict(changed), HasSubstr("refused: the program was changed after"));
    EXPECT_THAT(qvcatalog({"verify", folder_ / "missing"}), FailsWith(2, "missing: "));
    EXPECT_THAT(qvcatalog({"verify", folder_.path()}), FailsWith(2, "directory"));
    const std::string pipe = folder_ / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(qvcatalog({"verify", pipe}), FailsWith(2, "pipe: ")) << "or waited for a writer";
    EXPECT_THAT(qvcatalog({"verify", kGood, "--requirement", "identifier and"}),
                FailsWith(2, "the requirement does not compile"));
}

TEST_F(SignAndVerify, ARunningProgramIsJudgedAsItRuns) {
    const auto verify = [](const std::string& program) {
        PipeEnds strings = makePipe();
        PipeEnds answers = makePipe();
        const StartedProgram running(
            {.command = {program}, .standard = {strings.read.get(), answers.write.get(), -1}});
        char answer = 0;
        EXPECT_TRUE(writeAll(strings.write.get(), "close\n"));
        EXPECT_EQ(::read(answers.read.get(), &answer, 1), 1) << "it runs when it answers";
        return qvcatalog({"verify", "--pid", std::to_string(running.pid())});
    };
    const ProgramRun good = verify(kGood);
    EXPECT_THAT(good, Succeeds());
    EXPECT_THAT(good.output, HasSubstr("acceptable"));
    const ProgramRun bad = verify(program_);
    EXPECT_EQ(bad.status, 1);
    EXPECT_THAT(bad.output, HasSubstr("refused: Codesigning flags requirements not fulfilled"));
    StartedProgram gone({.command = {"/bin/true"}});
    ASSERT_EQ(gone.wait(), 0);
    const ProgramRun none = qvcatalog({"verify", "--pid", std::to_string(gone.pid())});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.output, HasSubstr("No such process"));
}

TEST_F(SignAndVerify, ASignatureKeepsTheProgramRunningAndReplacesAnOlderOne) {
    EXPECT_THAT(sign({"--flags", "hard,kill"}), Succeeds());
    const std::string once = contentOf(program_);
    EXPECT_EQ(once.rfind(contentOf(QV_WIRE_PUPPET), 0), 0U);
    EXPECT_THAT(sign({"--flags", "hard,kill"}), Succeeds());
    EXPECT_NEAR(static_cast<double>(contentOf(program_).size()), static_cast<double>(once.size()),
                16) // a signature of this kind varies by a few bytes
        << "two signatures";
    EXPECT_EQ(runProgram({program_}).status, 0);
}

TEST_F(SignAndVerify, ARefusalToSignLeavesTheProgramAlone) {
    expectRefused(sign({"--flags", "hard,fast"}), 2, "unknown flag \"fast\"");
    expectRefused(sign({"--entitlements", folder_.write("list", "( no, dictionary )")}), 2,
                  "a dictionary is wanted here");
    expectRefused(sign({"--info", folder_ / "nothing"}), 2, "nothing: ");
    for (const char* option : {"--identifier", "--team", "--certificate", "--key"}) {
        expectRefused(sign({}, {option}), 2, option);
    }
    expectRefused(sign({"--team", "OTHERTEAM1"}, {"--team"}), 1, "OTHERTEAM1");
    expectRefused(sign({"--identifier", ""}, {"--identifier"}), 1, "must not be empty");
    expectRefused(sign({"--certificate", folder_ / "gone.pem"}, {"--certificate"}), 2, "gone.pem");
    expectRefused(sign({"--certificate", folder_.write("bad.pem", "x")}, {"--certificate"}), 1,
                  "bad.pem");
    const TestAuthority other;
    expectRefused(sign({"--key", other.requestIn(folder_ / "other").keyPath}, {"--key"}), 1,
                  "not the key of the certificate");
    std::filesystem::permissions(signer_.keyPath, std::filesystem::perms(0640));
    expectRefused(sign(), 1, "set its mode to 0600");
    std::filesystem::permissions(signer_.keyPath, std::filesystem::perms(0600));
    std::ofstream(program_, std::ios::trunc) << "#!/bin/sh\necho a script is never signed, short "
                                                "or long\n";
    EXPECT_THAT(sign(), FailsWith(1, "no ELF file"));
    std::filesystem::remove(program_);
    EXPECT_THAT(sign(), FailsWith(2, "No such file"));
}

} // namespace
} // namespace qv::test
