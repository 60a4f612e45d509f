#include "platform/security/install/AllowedClients.h"

#include "SignatureFixture.h"
#include "TextCases.h"
#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct AllowedClientsTest : testing::Test {
    void write(std::string_view name, std::string_view content, mode_t mode = 0644) const {
        fs::create_directories(folder());
        writeWithMode(folder() / name, content, mode);
    }
    [[nodiscard]] fs::path folder() const { return temporary / "clients.d"; }
    [[nodiscard]] std::string names() const {
        std::string names;
        for (const AllowedClient& client : clients.current()->clients) {
            names += client.name + ' ';
        }
        return names;
    }

    TemporaryDirectory temporary;
    const AllowedClients clients{folder(), ::geteuid()};
};

TEST_F(AllowedClientsTest, FollowTheirFolder) {
    EXPECT_EQ(names() + clients.current()->reason, "") << "a missing folder is not a fault";
    write("b.requirement", "# one\nidentifier b // only\n");
    write("a-1.requirement", "identifier a or always");
    EXPECT_EQ(names(), "a-1 b ");
    CodeFacts facts;
    facts.identifier = "a";
    facts.chain.resize(1);
    const Requirement requirement = clients.current()->clients.front().requirement;
    EXPECT_NE(requirement.evaluate(facts), 0) << "its chain ends nowhere";
    facts.chain.front().vendorRoot = true;
    EXPECT_EQ(requirement.evaluate(facts), 0);
    fs::remove(folder() / "b.requirement");
    EXPECT_EQ(names(), "a-1 ");
}

TEST_F(AllowedClientsTest, CountOnlyWithoutAnyViolation) {
    for (const TextCase& each : textCasesOf(QV_CASES "allowed-clients.txt")) {
        fs::remove_all(folder());
        write("a.requirement", "always");
        ASSERT_EQ(names(), "a ") << clients.current()->reason;
        runIn(temporary.path(), each.text);
        EXPECT_EQ(names(), "") << each.text;
        EXPECT_THAT(clients.current()->reason, HasSubstr(each.outcome)) << each.text;
    }
}

} // namespace
} // namespace qv::test
