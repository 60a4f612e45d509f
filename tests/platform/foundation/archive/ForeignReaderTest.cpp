#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/values/URL.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace qv {
namespace {

constexpr const char* kPython = "/usr/bin/python3";

std::string resolvedElsewhere(const Value& root) {
    const test::TemporaryDirectory top;
    const std::string input =
        top.write("archive", KeyedArchiver::archivedDataWithRootObject(root).value());
    const std::string output = top / "text";
    Task task;
    task.setLaunchPath(kPython);
    task.setArguments({QV_RESOLVE_ARCHIVE});
    task.setStandardInput(Descriptor(::open(input.c_str(), O_RDONLY | O_CLOEXEC)));
    task.setStandardOutput(
        Descriptor(::open(output.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600)));
    task.launch();
    task.waitUntilExit();
    EXPECT_EQ(task.terminationStatus(), 0);
    return test::contentOf(output);
}

TEST(ForeignReader, ReadsAReply) {
    if (::access(kPython, X_OK) != 0) {
        GTEST_SKIP() << kPython << " is not installed";
    }
    const Error inner(error_domain::kPOSIX, 2);
    const Error error(
        error_domain::kCocoa, 4,
        Value::dictionary({{"NSUnderlyingError", Value::error(inner)},
                           {"NSURL", Value::url(URL::URLWithString("file:///a%20b").value())},
                           {"list", Value::array({Value::string("Move"), Value()})},
                           {"set", Value::set({Value::real(0.5)})},
                           {"when", Value::date({86400.5})},
                           {"bytes", Value::data("\x01\xFE")},
                           {"big", Value::unsignedInteger(18446744073709551615ULL)}}));
    EXPECT_EQ(resolvedElsewhere(Value::dictionary({{"success", Value::boolean(false)},
                                                   {"errorScriptStepIndex", Value::integer(0)},
                                                   {"$null", Value::string("\xC3\xA9")},
                                                   {"error", Value::error(error)}})),
              R"({"success": false, "errorScriptStepIndex": 0, "$null": "\u00e9", )"
              R"("error": {"domain": "NSCocoaErrorDomain", "code": 4, "info": {)"
              R"("NSUnderlyingError": {"domain": "NSPOSIXErrorDomain", "code": 2, "info": null}, )"
              R"("NSURL": {"url": "file:///a%20b", "base": null}, )"
              R"("list": ["Move", {"null": true}], "set": {"set": [0.5]}, )"
              R"("when": {"date": 86400.5}, "bytes": {"data": "01fe"}, )"
              R"("big": 18446744073709551615}}})"
              "\n");
}

} // namespace
} // namespace qv
