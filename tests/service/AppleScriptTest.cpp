// A corpus of scripts, each after a task of installation and maintenance, by the command and by the
// service. A line "-- => VALUE" or "-- error NUMBER: TEXT" at a script's top says how it ends.

#include "platform/foundation/os/ProcessIdentity.h"
#include "service/ServiceTest.h"
#include "support/BuildFolder.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>

namespace qv::test {
namespace {

using AppleScript = ServiceTest;

struct CorpusScript {
    std::string source;
    std::string expected; // "=> VALUE" or "error NUMBER: TEXT"
};

CorpusScript scriptIn(const std::filesystem::path& file, const std::filesystem::path& folder) {
    std::string source = contentOf(file);
    for (std::size_t at = 0; (at = source.find("$DIR", at)) != std::string::npos;) {
        source.replace(at, 4, folder.native());
    }
    std::smatch found;
    EXPECT_TRUE(std::regex_search(source, found, std::regex("-- ((?:=> |error -?\\d+: ).*)")));
    return {source, found[1]};
}

std::string byCommand(const CorpusScript& script) {
    const ProgramRun run = runProgram({built("bin/qvcatalog"), "script", "-"}, script.source);
    if (run.status == 0) {
        return "=> " + run.output.substr(0, run.output.find_last_not_of('\n') + 1);
    }
    std::smatch parts; // qvcatalog: standard input:LINE:COLUMN: TEXT (NUMBER)
    return std::regex_search(run.errors, parts,
                             std::regex("^qvcatalog: standard input[:0-9]*: (.*) \\((.*)\\)"))
               ? fmt::format("error {}: {}", parts[2].str(), parts[1].str())
               : run.errors;
}

Value scriptStep(std::string_view source) {
    return Value::dictionary({{"operation", number(15)}, {"arg1", text(source)}});
}

TEST_F(AppleScript, RunsItsCorpus) {
    int scripts = 0;
    for (const auto& file : std::filesystem::directory_iterator(QV_APPLESCRIPT_CORPUS)) {
        SCOPED_TRACE(file.path().filename());
        const TemporaryDirectory here;
        const CorpusScript script = scriptIn(file.path(), here.path());
        if (scripts % (isSanitized() ? 8 : 1) == 0) { // the sanitizer makes a start take long
            EXPECT_EQ(byCommand(script), script.expected);
        }
        const TemporaryDirectory there;
        const auto outcome = client_->execute(
            Value::array({scriptStep(scriptIn(file.path(), there.path()).source)}));
        ASSERT_TRUE(outcome);
        EXPECT_EQ(outcome->success, script.expected.starts_with("=>"));
        if (!outcome->success) {
            EXPECT_THAT(script.expected,
                        testing::StartsWith(fmt::format("error {}: ", outcome->error.code())));
        }
        ++scripts;
    }
    EXPECT_GE(scripts, 60);
}

// The error's description is the printed error information, as the platform prints dictionaries.
TEST_F(AppleScript, DescribesErrorsAsThePlatform) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"set x to undefinedName",
         "{\n"
         "    NSAppleScriptErrorBriefMessage = \"The variable undefinedName is not defined.\";\n"
         "    NSAppleScriptErrorMessage = \"The variable undefinedName is not defined.\";\n"
         "    NSAppleScriptErrorNumber = \"-2753\";\n"
         "    NSAppleScriptErrorRange = \"NSRange: {9, 13}\";\n"
         "}"},
        {"tell application \"Finder\" to delete POSIX file \"/nothing/here\"",
         "{\n"
         "    NSAppleScriptErrorAppName = Finder;\n"},
        {"do shell script \"exit 12\"", "    NSAppleScriptErrorNumber = 12;\n"},
    };
    for (const auto& [source, part] : rows) {
        const auto outcome = client_->execute(Value::array({scriptStep(source)}));
        ASSERT_TRUE(outcome);
        EXPECT_EQ(outcome->error.domain(), "QVCatalogScriptErrorDomain");
        EXPECT_THAT(outcome->error.localizedDescription(), testing::HasSubstr(std::string(part)));
    }
}

TEST_F(AppleScript, GivesCommandsAFreshStart) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"ls /proc/self/fd", "0\\r1\\r2\\r3"}, // the last is its own
        {"tr '\\\\0' '\\n' </proc/$$/environ | cut -d= -f1 | sort | tr '\\n' ' '",
         "HOME LANG LOGNAME PATH SHELL USER "},
        {"grep -hE '^(Umask|Sig(Blk|Ign))' /proc/$$/status | cut -f2 | tr '\\n' ' '",
         "0022 0000000000000000 0000000000000000 "},
        {"readlink /proc/$$/fd/0 /proc/$$/cwd | tr '\\n' ' '", "/dev/null / "},
    };
    for (const auto& [command, printed] : rows) {
        const auto outcome = client_->execute(Value::array({scriptStep(
            fmt::format("set x to do shell script \"{}\"\nif x is not \"{}\" then error x", command,
                        printed))}));
        ASSERT_TRUE(outcome);
        EXPECT_TRUE(outcome->success) << command << ": " << outcome->error.localizedDescription();
    }
}

// Ends the script's process or the service while a command runs: the command goes on only if its
// script is killed.
TEST_F(AppleScript, EndsItsCommandWithItself) {
    const struct {
        bool isService;
        int signal;
        bool goesOn;
    } rows[] = {{false, SIGKILL, true}, {false, SIGTERM, false}, {true, SIGTERM, false}};
    for (const auto& row : rows) {
        const std::filesystem::path file = folder_ / "processes";
        std::filesystem::remove(file);
        ASSERT_TRUE(client_->send(client_->scriptRequest(Value::array({scriptStep(
            fmt::format("do shell script \"echo $PPID $$ >{0}.new; mv {0}.new {0}; sleep 60; :\"",
                        file.native()))}))));
        ASSERT_TRUE(comesTrue([&] { return std::filesystem::exists(file); }));
        pid_t script = 0;
        pid_t command = 0;
        std::ifstream(file) >> script >> command;
        ASSERT_GT(command, 1);
        const Descriptor held = openPidfd(command);
        EXPECT_EQ(::kill(row.isService ? service_->pid() : script, row.signal), 0);
        if (!row.isService) {
            const auto outcome = client_->outcome();
            ASSERT_TRUE(outcome);
            EXPECT_EQ(outcome->error.code(), -10000);
            EXPECT_TRUE(servesOthers());
        }
        EXPECT_TRUE(row.goesOn ? !hasEnded(held.get()) : comesTrue([&] {
            return hasEnded(held.get());
        })) << row.isService
            << row.signal;
        ::kill(-command, SIGKILL); // with its child
    }
}

} // namespace
} // namespace qv::test
