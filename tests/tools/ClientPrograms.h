#pragma once

#include "support/BuildFolder.h"
#include "support/InstalledPrograms.h"
#include "support/TestAuthority.h"
#include "tools/Command.h"

#include <filesystem>
#include <string>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace qv::test {

/// SampleClients in a folder of their own, signed through the command with the development identity
/// of this build.
class ClientPrograms : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: installs programs, and looks into processes";
        }
        struct statvfs info{};
        if (::statvfs(folder_.path().c_str(), &info) != 0 || (info.f_flag & ST_NOSUID) != 0) {
            GTEST_SKIP() << "needs a temporary folder whose mount is not nosuid";
        }
        std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    }

    /// A program, copied to the folder and signed by the identity of this build.
    [[nodiscard]] std::filesystem::path
    signedProgram(std::string_view name, std::vector<std::string> more = {},
                  const std::string& program = built("bin/qv_sample_client")) const {
        std::filesystem::copy_file(program, folder_ / name,
                                   std::filesystem::copy_options::overwrite_existing);
        more.insert(more.begin(),
                    {"sign", folder_ / name, "--identifier", "com.larkwen.QVCatalogHelper",
                     "--team", std::string(kTeam), "--certificate", signer_ + "leaf.pem", "--key",
                     signer_ + "leaf.key", "--intermediate", signer_ + "intermediate.pem"});
        EXPECT_THAT(qvcatalog(more), Succeeds());
        return folder_ / name;
    }
    /// Runs a transcript with "sample", a program for clients, the identity of this build in
    /// $SIGNER, that of a stranger in "keys" and that of another team in "hello".
    void expectClientTranscript(const std::string& name) const {
        static_cast<void>(TestAuthority().requestIn(folder_ / "keys"));
        static_cast<void>(TestAuthority("HELLOTEAM").requestIn(folder_ / "hello"));
        std::filesystem::copy_file(built("bin/qv_sample_client"), folder_ / "sample");
        expectTranscript(name, folder_, {"SIGNER=" + signer_});
    }

    const std::string signer_ =
        std::filesystem::path(built("identity/anchors.d")).replace_filename("signer/");
    TemporaryDirectory folder_;
};

} // namespace qv::test
