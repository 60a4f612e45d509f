// A client that a machine makes for itself, judged as the service does.

#include "platform/security/install/OwnClient.h"

#include "platform/security/SignatureFixture.h"
#include "platform/security/guest/GuestReport.h"
#include "platform/security/guest/GuestServices.h"
#include "platform/security/install/AllowedClients.h"
#include "support/StartedProgram.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

class OwnClientTest : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: installs programs";
        }
        for (const char* folder : {"clients.d", "anchors.d"}) {
            writeWithMode(folder_ / folder / "x", "", 0644);
            std::filesystem::remove(folder_ / folder / "x");
        }
    }
    tl::expected<InstalledClient, Error> install(const std::string& program,
                                                 const std::function<void()>& eachStep = {}) {
        const Descriptor file(::open(program.c_str(), O_RDONLY | O_CLOEXEC));
        return own_.install(file.get(), eachStep);
    }
    // The reason why the service would refuse a program; empty: it would not.
    std::string refusal(const std::string& program) {
        const Descriptor file(::open(program.c_str(), O_RDONLY | O_CLOEXEC));
        const auto code = GuestServices(configuration_).examine(file.get());
        const auto list = AllowedClients(configuration_.clientsDirectory, 0).current();
        for (const AllowedClient& client : list->clients) {
            if (code->status() == 0 && !checkRequirement(client.requirement, code->facts())) {
                return {};
            }
        }
        return code->reason() + list->reason + " refused";
    }
    // All items with their modes, and the content of the small files.
    std::string state() {
        return runProgram({"/bin/sh", "-c",
                           "cd \"$0\" && find . -printf '%p %m %g\\n' | sort && cat */*/*.pem "
                           "*/*.requirement",
                           folder_.path()})
            .output;
    }

    TemporaryDirectory folder_;
    CodeSigningConfiguration configuration_{.anchorsDirectory = folder_ / "anchors.d",
                                            .clientsDirectory = folder_ / "clients.d",
                                            .clientGroup = 47110,
                                            .allowTemporaryFileSystems = true};
    OwnClient::Choices choices_{.name = "own",
                                .identifier = "com.example.own",
                                .team = "OWN",
                                .path = folder_ / "place/client"};
    OwnClient own_{choices_, configuration_};
};

TEST_F(OwnClientTest, WorksWhereverRenewalIsCutOff) {
    ASSERT_TRUE(install("/bin/true"));
    EXPECT_EQ(refusal(choices_.path), "");
    EXPECT_THAT(state(), HasSubstr("./place 700 root\n./place/client 2750 47110\n"));
    std::filesystem::copy_file(choices_.path, folder_ / "former");
    std::filesystem::permissions(folder_ / "place", std::filesystem::perms(0710));
    EXPECT_THAT(install("/bin/true").error().description(),
                HasSubstr("others than root can enter"));
    std::filesystem::permissions(folder_ / "place", std::filesystem::perms(0700));
    int steps = 0;
    for (int cutAt = 1; cutAt <= 5; ++cutAt) {
        EXPECT_ANY_THROW(static_cast<void>(install("/bin/false",
                                                   [&, left = cutAt]() mutable {
                                                       ++steps;
                                                       EXPECT_EQ(refusal(choices_.path), "")
                                                           << "cut at " << cutAt << ", " << left
                                                           << " left";
                                                       if (--left == 0) {
                                                           throw std::runtime_error("cut off");
                                                       }
                                                   })))
            << "there are fewer steps than " << cutAt;
    }
    EXPECT_EQ(steps, 15);
    writeWithMode(folder_ / "place/.qv-0123456789abcdef", "", 02750); // cut off in the middle of it
    ASSERT_TRUE(install("/bin/true"));
    EXPECT_EQ(refusal(choices_.path), "");
    EXPECT_THAT(refusal(folder_ / "former"), HasSubstr("refused")) << "the same bytes, former key";
    const std::string anchors = contentOf(own_.anchorPath());
    EXPECT_EQ(anchors.find("BEGIN"), anchors.rfind("BEGIN")) << "a former one is left";
    EXPECT_THAT(contentOf(own_.requirementPath()), testing::Not(HasSubstr(" or ")));
    EXPECT_THAT(state(), testing::Not(HasSubstr("/.")));
}

TEST_F(OwnClientTest, FailureLeavesWhatWasThere) {
    for (const bool isRenewal : {false, true}) {
        std::filesystem::create_directory(folder_ / "anchors.d/trusted");
        std::filesystem::create_directory(folder_ / "place");
        std::filesystem::permissions(folder_ / "place", std::filesystem::perms(0700));
        const std::string before = state();
        writeWithMode(folder_ / "clients.d/notes", "", 0644);
        const auto refused = install("/bin/true");
        ASSERT_FALSE(refused);
        EXPECT_THAT(refused.error().description(), HasSubstr("notes: does not end in"));
        std::filesystem::remove(folder_ / "clients.d/notes");
        configuration_.clientGroup.reset();
        EXPECT_FALSE(install("/bin/true"));
        configuration_.clientGroup = 47110;
        EXPECT_EQ(state(), before);
        EXPECT_EQ(isRenewal, refusal(choices_.path).empty());
        ASSERT_TRUE(install("/bin/true"));
    }
    EXPECT_FALSE(own_.remove());
    EXPECT_FALSE(own_.remove()) << "although nothing is left";
    EXPECT_EQ(state().find("own"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "place"));
}

} // namespace
} // namespace qv::test
