// An application's script object whose rights do not suffice, and the service that has them.

#include "support/BuildFolder.h"
#include "support/LiveService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

class PriviledgedExecution : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: the service acts as root, its client as another user";
        }
        std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    }
    // The output of an application that runs as nobody.
    ProgramRun change(const std::string& file, const std::string& manner,
                      const std::string& socket) {
        // Its leaks cannot be looked for: it is no longer what it was started as.
        return runProgram({built("live/script_client"), socket, file, "65534", manner}, "",
                          {"ASAN_OPTIONS=detect_leaks=0"});
    }
    TemporaryDirectory folder_;
};

TEST_F(PriviledgedExecution, CuresALackOfRights) {
    for (const char* manner : {"direct", "admin"}) {
        LiveService service;
        const std::string file = folder_.write(manner, "");
        const ProgramRun run = change(file, manner, service.socketPath());
        EXPECT_EQ(run.output, "done\ndone\n") << run.errors;
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0640));
        EXPECT_EQ(service.waitForExit(), 0) << "outlived its application";
    }
}

// The first error is what the caller understands; the second only says that there was no cure. With
// admin rights there is only the service's word.
TEST_F(PriviledgedExecution, GivesTheErrorThatCounts) {
    LiveService service;
    const std::string file = folder_.write("file", "");
    const std::string missing = folder_ / "missing";
    const std::string nowhere = folder_ / "no.sock";
    constexpr std::string_view kNotPermitted = "NSPOSIXErrorDomain Code=1 ";
    constexpr std::string_view kNoSuchFile = "NSPOSIXErrorDomain Code=2 ";
    EXPECT_THAT(change(file, "alone", "").output, HasSubstr(kNotPermitted));
    EXPECT_THAT(change(file, "stubborn", service.socketPath()).output, HasSubstr(kNotPermitted));
    EXPECT_THAT(change(file, "direct", nowhere).output, HasSubstr(kNotPermitted));
    EXPECT_THAT(change(missing, "direct", service.socketPath()).output, HasSubstr(kNoSuchFile));
    EXPECT_THAT(change(missing, "admin", LiveService().socketPath()).output,
                HasSubstr(kNoSuchFile));
    EXPECT_THAT(change(missing, "admin", nowhere).output,
                HasSubstr("The service cannot be reached"));
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0644));
}

} // namespace
} // namespace qv::test
