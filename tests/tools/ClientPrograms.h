#pragma once

#include "support/InstalledPrograms.h"
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

    [[nodiscard]] std::filesystem::path
    unsignedProgram(std::string_view name, const std::string& program = QV_SAMPLE_CLIENT) const {
        std::filesystem::copy_file(program, folder_ / name,
                                   std::filesystem::copy_options::overwrite_existing);
        return folder_ / name;
    }
    [[nodiscard]] std::filesystem::path
    signedProgram(std::string_view name, const std::string& flags = "",
                  const std::vector<std::string>& more = {},
                  const std::string& program = QV_SAMPLE_CLIENT) const {
        const std::string signer = std::filesystem::path(QV_ANCHORS).replace_filename("signer/");
        std::vector<std::string> arguments = {"sign", unsignedProgram(name, program)};
        const auto add = [&](const std::string& option, const std::string& value) {
            if (std::ranges::find(more, option) == more.end()) {
                arguments.insert(arguments.end(), {option, value});
            }
        };
        add("--identifier", "com.larkwen.QVCatalogHelper");
        add("--team", std::string(kTeam));
        add("--certificate", signer + "leaf.pem");
        add("--key", signer + "leaf.key");
        add("--intermediate", signer + "intermediate.pem");
        if (!flags.empty()) {
            add("--flags", flags);
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_THAT(qvcatalog(arguments), Succeeds());
        return folder_ / name;
    }
    [[nodiscard]] std::filesystem::path debuggableProgram(std::string_view name) const {
        const auto list = folder_.write(
            "entitlements", "<plist version=\"1.0\"><dict><key>com.apple.security.get-task-allow"
                            "</key><true/></dict></plist>");
        const auto program = signedProgram(name, "hard,kill", {"--entitlements", list});
        std::filesystem::remove(list);
        return program;
    }

    TemporaryDirectory folder_;
};

} // namespace qv::test
