#include "platform/foundation/values/Exception.h"
#include "script/Steps.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

using test::number;
using test::strings;
using test::text;

Error runTool(std::string_view tool, const std::optional<Value>& arguments,
              const std::optional<Value>& codes = std::nullopt) {
    QVCatalogScript script;
    script.setIsPriviledged(true);
    return script.executeTool(text(tool), arguments, codes);
}

TEST(Tool, OnlyExitStatusZeroIsSuccess) {
    EXPECT_FALSE(runTool("/bin/true", std::nullopt));
    // The success codes are carried, not consulted.
    const Error error = runTool("/bin/sh", strings({"-c", "exit 7"}), Value::array({number(7)}));
    EXPECT_EQ(error, Error::withDescription(
                         kCatalogScriptErrorDomain, 7,
                         "Tool exited with code 7: /bin/sh (\n    \"-c\",\n    \"exit 7\"\n)"));
    EXPECT_EQ(runTool("/bin/false", Value()),
              Error::withDescription(kCatalogScriptErrorDomain, 1,
                                     "Tool exited with code 1: /bin/false <null>"));
}

TEST(Tool, DeathBySignalIsToldFromExit) {
    EXPECT_EQ(runTool("/bin/sh", strings({"-c", "kill -9 $$"})),
              Error::withDescription(kCatalogScriptErrorDomain, 0,
                                     "Uncaught signal executing /bin/sh (\n    \"-c\",\n    "
                                     "\"kill -9 $$\"\n)"));
}

TEST(Tool, PassesArgumentsUnchanged) {
    const test::TemporaryDirectory folder;
    const std::string out = folder / "out";
    const std::string script = R"(printf '%s|' "$@" > "$0")";
    EXPECT_FALSE(runTool("/bin/sh", strings({"-c", script, out, "a b", "", "ü", "$HOME", "*"})));
    EXPECT_EQ(test::contentOf(out), "a b||ü|$HOME|*|");
}

TEST(Tool, ThatCannotBeStartedRaises) {
    for (const char* tool : {"/nonexistent", "/bin", "true"}) {
        EXPECT_THROW(static_cast<void>(runTool(tool, std::nullopt)), Exception) << tool;
    }
}

} // namespace
} // namespace qv
