// Scripts of a line or a few, with what they print or give, or the error and its place.

#include "platform/applescript/language/Compiler.h"
#include "platform/applescript/running/Interpreter.h"
#include "platform/applescript/world/LinuxWorld.h"
#include "support/BuildFolder.h"
#include "support/CaseFile.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

namespace qv::applescript {
namespace {

using test::casesOf;

// `error NUMBER BEGIN LENGTH text`
std::string shown(const ScriptError& error) {
    const Range range = error.range.value_or(Range{});
    return fmt::format("error {} {} {} {}", error.number, range.location, range.length,
                       error.message());
}

TEST(AppleScriptLanguage, PrintsWhatItReads) {
    for (const auto& [place, fields] : casesOf(QV_APPLESCRIPT_CASES "/language.txt", 2)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        try {
            const std::string printed = print(*compile(fields[0]));
            EXPECT_EQ(printed.substr(0, printed.find_last_not_of('\n') + 1), fields[1]);
            EXPECT_EQ(print(*compile(printed)), printed) << "printed, read and printed";
        } catch (const ScriptError& error) {
            EXPECT_EQ(shown(error), fields[1]);
        }
    }
}

class Results : public testing::TestWithParam<const char*> {};

// $DIR in a script stands for a fresh folder.
TEST_P(Results, AreThoseOfTheTable) {
    for (const auto& [place, fields] :
         casesOf(QV_APPLESCRIPT_CASES "/" + std::string(GetParam()), 2)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        const test::TemporaryDirectory folder;
        const auto resolved = [&](std::string text) {
            for (std::size_t at = 0; (at = text.find("$DIR", at)) != std::string::npos;) {
                text.replace(at, 4, folder.path().native());
            }
            return text;
        };
        LinuxWorld world(ProcessIdentity::ofThisProcess(), {},
                         Deadline::after(std::chrono::minutes(1)));
        try {
            const ScriptValue result = execute(*compile(resolved(fields[0])), world);
            EXPECT_EQ(sourceText(result, world), resolved(fields[1]));
        } catch (const ScriptError& error) {
            EXPECT_EQ(shown(error), resolved(fields[1]));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Results, testing::Values("running.txt", "world.txt"));

// A script must not take the process that it runs in along: each ends, with the error of a bound.
TEST(AppleScriptLimits, EndEndlessScripts) {
    for (const auto& [place, fields] : casesOf(QV_APPLESCRIPT_CASES "/limits.txt", 3)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        const Limits few{.steps = 200'000,
                         .time = std::chrono::milliseconds(std::stoi(fields[1])),
                         .memory = std::size_t{4} << 20U,
                         .depth = 100};
        LinuxWorld world(ProcessIdentity::ofThisProcess(), {}, Deadline::after(few.time));
        std::string outcome;
        try {
            outcome = sourceText(execute(*compile(fields[0]), world, few), world);
        } catch (const ScriptError& error) {
            outcome = fmt::format("error {}", error.number);
        }
        EXPECT_EQ(outcome, fields[2]);
    }
}

// Sources that somebody else chose are refused in time linear in their length.
TEST(AppleScriptLimits, RefuseHostileSources) {
    const std::size_t many = test::isSanitized() ? 2'000 : 100'000;
    for (const std::string_view piece : {"(",
                                         "{",
                                         "not ",
                                         "- ",
                                         "if true then ",
                                         "tell it to ",
                                         "1 + (",
                                         "x's ",
                                         "item 1 of ",
                                         "every item of ",
                                         "repeat\n",
                                         "try\n",
                                         "(* ",
                                         "\"",
                                         "{a:",
                                         "f(",
                                         "considering case\n",
                                         "set x to ",
                                         "my ",
                                         "\xC2\xAB",
                                         "\xFF"}) {
        std::string source;
        for (std::size_t i = 0; i < many; ++i) {
            source += piece;
        }
        EXPECT_THROW(static_cast<void>(compile(source)), ScriptError) << piece;
    }
}

} // namespace
} // namespace qv::applescript
