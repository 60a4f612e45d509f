// The commands of docs/security.md, as they stand there.

#include "platform/security/examination/CodeExaminer.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"
#include "support/BuildFolder.h"
#include "support/TestAuthority.h"
#include "tools/Command.h"

#include <fcntl.h>
#include <unistd.h>

namespace qv::test {
namespace {

constexpr std::string_view kRequirement =
    "anchor apple generic and identifier \"com.larkwen.QVCatalogHelper\" and certificate "
    "1[field.1.2.840.113635.100.6.2.6] and certificate leaf[field.1.2.840.113635.100.6.1.13] and "
    "certificate leaf[subject.OU] = T4KQ8ZP3WM";

// The blocks of commands, in their order.
std::vector<std::string> commandsOf(const std::string& document) {
    constexpr std::string_view kBegin = "```sh commands\n";
    std::vector<std::string> blocks;
    for (std::size_t at = document.find(kBegin); at != std::string::npos;
         at = document.find(kBegin, at)) {
        at += kBegin.size();
        blocks.push_back(document.substr(at, document.find("```", at) - at));
    }
    return blocks;
}

TEST(SecurityGuide, MakesAnchorsAndClients) {
    const TemporaryDirectory folder;
    const std::string anchors = folder / "anchors.d";
    std::vector<std::string> blocks = commandsOf(contentOf(QV_GUIDE));
    ASSERT_EQ(blocks.size(), 4U);
    const std::string usual = "anchors=/etc/qvcatalog/anchors.d\n";
    ASSERT_NE(blocks[1].find(usual), std::string::npos);
    blocks[1].replace(blocks[1].find(usual), usual.size(), "");
    copySmallProgram(folder.path() / "client");
    const auto run = [&](const std::string& commands) {
        const ProgramRun done = runProgram(
            {"/bin/bash", "-euc", "cd \"$1\"; anchors=$2; umask 022; " + commands, "bash",
             folder.path(), anchors},
            "",
            {"PATH=" + std::filesystem::path(built("bin/qvcatalog")).parent_path().string() +
             ":/usr/bin:/bin"});
        ASSERT_EQ(done.status, 0) << commands << done.errors;
    };
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_NO_FATAL_FAILURE(run(blocks[i]));
    }
    CodeExaminer examiner(anchors, ::geteuid());
    const auto judged = [&] {
        const Descriptor client(::open((folder / "client").c_str(), O_RDONLY | O_CLOEXEC));
        return std::get<std::shared_ptr<const StaticCode>>(
            examiner.examine(client.get(), CodeExaminer::Deadline::max()));
    };
    const auto client = judged();
    ASSERT_EQ(client->status(), codesign_status::kSuccess) << client->reason();
    EXPECT_EQ(examiner.anchorsReason(), "");
    EXPECT_EQ(Requirement::compile(kRequirement)->evaluate(client->facts()), 0);
    EXPECT_EQ(client->directoryFlags(), code_flags::kHard | code_flags::kKill |
                                            code_flags::kRuntime | code_flags::kCheckExpiration);

    ASSERT_NO_FATAL_FAILURE(run(blocks[3]));
    EXPECT_EQ(judged()->status(), codesign_status::kCertificateRevoked) << examiner.anchorsReason();
}

} // namespace
} // namespace qv::test
