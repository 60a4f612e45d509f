// qvcatalog version.

#include "tools/Command.h"

namespace qv::test {
namespace {

TEST(VersionCommand, PrintsTheOrderOfTwoVersions) {
    struct Row {
        std::vector<std::string> arguments;
        std::string_view output;
    };
    for (const Row& row : std::initializer_list<Row>{
             {{"10.6.8", "10.7"}, "-1\n"},
             {{"10.10", "10.9"}, "1\n"},
             {{"2.0", "2"}, "0\n"},
             {{"2 beta", "2"}, "1\n"},
             {{"", "1"}, "-1\n"},
             {{"--", "-1", "-2"}, "1\n"},
         }) {
        std::vector<std::string> arguments = row.arguments;
        arguments.insert(arguments.begin(), "version");
        const ProgramRun run = qvcatalog(arguments);
        EXPECT_THAT(run, Succeeds());
        EXPECT_EQ(run.output, row.output) << row.arguments.front();
    }
}

TEST(VersionCommand, WantsTwoVersions) {
    EXPECT_THAT(qvcatalog({"version"}), FailsWith(2, "A"));
    EXPECT_THAT(qvcatalog({"version", "1"}), FailsWith(2, "B"));
    EXPECT_THAT(qvcatalog({"version", "1", "2", "3"}), FailsWith(2, "3"));
    EXPECT_THAT(qvcatalog({"version", "1", "-x"}), FailsWith(2, "-x"));
}

} // namespace
} // namespace qv::test
