// qvcatalog application.

#include "tools/Command.h"

#include <filesystem>
#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

/// A user with a data folder of its own.
class ApplicationCommand : public testing::Test {
protected:
    ApplicationCommand() {
        fs::permissions(folder_.path(), fs::perms(0755));
        fs::copy_file(QV_COMMAND, folder_ / "qvcatalog");
        folder_.write("data/applications/org.x.Editor.desktop",
                      "[Desktop Entry]\nType=Application\nName=Example Editor\nExec=sh\n");
    }
    // Root's look-up does not depend on the environment, so somebody else must look.
    ProgramRun look(std::vector<std::string> arguments) {
        std::vector<std::string> command;
        if (::geteuid() == 0) {
            command = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
        }
        command.insert(command.end(), {folder_ / "qvcatalog", "application"});
        command.insert(command.end(), arguments.begin(), arguments.end());
        return runProgram(command, {}, {"XDG_DATA_HOME=" + std::string(folder_ / "data")});
    }
    TemporaryDirectory folder_;
    const std::string editor_ = folder_ / "data/applications/org.x.Editor.desktop";
};

TEST_F(ApplicationCommand, PrintsWhereAnApplicationIs) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"ORG.x.editor"}, {"--name", "Example Editor"}}) {
        const ProgramRun run = look(arguments);
        EXPECT_THAT(run, Succeeds());
        EXPECT_EQ(run.output, editor_ + "\n");
    }
    const ProgramRun run = look({"--json", "org.x.Editor"});
    EXPECT_THAT(run, Succeeds());
    EXPECT_EQ(python("import json, sys; print(json.load(sys.stdin)['path'])", run.output),
              editor_ + "\n");
}

TEST_F(ApplicationCommand, SaysThatThereIsNone) {
    EXPECT_THAT(look({"org.x.None"}), FailsWith(1, "identifier \"org.x.None\""));
    EXPECT_THAT(look({"--name", "org.x.Editor2"}), FailsWith(1, "name \"org.x.Editor2\""));
    EXPECT_THAT(look({"--user", "root", "org.x.Editor"}), FailsWith(1, "org.x.Editor"))
        << "the caller's environment says nothing about another user";
}

TEST_F(ApplicationCommand, WantsOneThingToLookFor) {
    EXPECT_THAT(look({}), FailsWith(2, "IDENTIFIER"));
    EXPECT_THAT(look({"--name", "x", "y"}), FailsWith(2, "--name"));
    EXPECT_THAT(look({"--user", "no-such-user", "y"}), FailsWith(2, "no-such-user"));
}

} // namespace
} // namespace qv::test
