#include "platform/foundation/values/Description.h"
#include "platform/iokit/RegistryFixture.h"
#include "rules/QVRuleChecker.h"
#include "rules/functions/QVRuleCheckerSysCtlFunction.h"
#include "support/CaseFile.h"

#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace qv::test {
namespace {

using namespace std::string_view_literals;

std::string shown(const std::optional<Value>& value) {
    return !value                           ? "none"
           : value->is(Value::Kind::string) ? "'" + std::string(value->asString()) + "'"
                                            : description(*value);
}

class SysCtlFunction : public RecordedRegistry {
protected:
    SysCtlFunction() {
        for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/machine.txt", 2)) {
            machine.write(fields[0], fields[1]);
        }
        services->root = machine.path();
    }
    TemporaryDirectory machine;
    std::shared_ptr<RuleServices> services = std::make_shared<RuleServices>();
};

TEST_F(SysCtlFunction, AnswersFromAMachine) {
    const auto net = machine / "proc/sys/net";
    std::filesystem::permissions(net / "secret/key", std::filesystem::perms::owner_write);
    std::filesystem::create_symlink("../kernel", net / "link");
    ASSERT_EQ(::mkfifo((net / "fifo").c_str(), 0644), 0);
    const auto checker = QVRuleChecker::ruleCheckerWithDefaultFunctions(true, services);
    for (const auto& [place, fields] : casesOf(QV_RULE_CASES "/sysctl.txt", 2)) {
        EXPECT_EQ(shown(checker->computeFunction(fields[0])), fields[1]) << place << fields[0];
    }
    EXPECT_EQ(checker->preprocessCheckRule("${sysctl(integer.hw.ncpu)} == 4", nullptr), "4 == 4");
    EXPECT_EQ(shown(QVRuleCheckerSysCtlFunction(services).resultFor(
                  Value::string("integer.hw.ncpu"), true)),
              "'4'");
}

TEST_F(SysCtlFunction, LaysStructuresOut) {
    const KernelParameters parameters(machine.path(), nullptr);
    const auto bytes = [&](const char* name) { return parameters.read(name)->text; };
    EXPECT_EQ(bytes("kern.boottime"), "\0\xF1\x53\x65\0\0\0\0\0\0\0\0\0\0\0\0"sv);
    EXPECT_EQ(bytes("vm.loadavg"), "\0\4\0\0\0\x8\0\0\0\2\0\0\0\0\0\0\0\x8\0\0\0\0\0\0"sv);
    EXPECT_EQ(bytes("vm.swapusage"), "\0\0\x20\0\0\0\0\0\0\0\x10\0\0\0\0\0\0\0\x10\0\0\0\0\0"
                                     "\0\x10\0\0\0\0\0\0"sv);
    EXPECT_EQ(bytes("kern.ostype"), "Linux\0"sv);
    EXPECT_FALSE(parameters.read("hw.model"));
}

TEST_F(SysCtlFunction, RefusesLongParametersAndNames) {
    const KernelParameters parameters(machine.path(), nullptr);
    const std::string name(250, 'n');
    std::string most(KernelParameters::kLongestParameter, 'x');
    machine.write("proc/sys/" + name + "/file", most);
    EXPECT_EQ(parameters.read(name + ".file")->text, most + '\0');
    EXPECT_FALSE(parameters.read(name + ".filex"));
    machine.write("proc/sys/" + name + "/filex", "too long a name");
    EXPECT_FALSE(parameters.read(name + ".filex"));
    EXPECT_FALSE(parameters.read("kernel.pid_max\0"sv));
    machine.write("proc/sys/kernel/long", most + "x");
    EXPECT_FALSE(parameters.read("kernel.long"));
}

TEST(SysCtlFunctionOfThisMachine, AgreesWithSystemCalls) {
    using Function = QVRuleCheckerSysCtlFunction;
    struct utsname system{};
    ASSERT_EQ(::uname(&system), 0);
    EXPECT_EQ(shown(Function::sysCtlStringValueForName("kern.osrelease")),
              "'" + std::string(&system.release[0]) + "'");
    EXPECT_EQ(shown(Function::sysCtlIntegerValueForName("hw.activecpu", false)),
              std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_EQ(shown(Function::sysCtlIntegerValueForName("kern.argmax", true)),
              std::to_string(::sysconf(_SC_ARG_MAX)));
    EXPECT_EQ(shown(Function::sysCtlStringValueForName("vm.drop_caches")), "none");
}

TEST(SysCtlFunctionOfAnyReader, ReadsIntegersOfEachWidth) {
    for (const auto& [bytes, number, unsignedNumber] :
         {std::tuple{"\xFF"sv, "-1", "255"}, std::tuple{"\xFE\xFF"sv, "-2", "65534"},
          std::tuple{"\xFF\xFF\xFF\xFF"sv, "-1", "4294967295"},
          std::tuple{"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv, "-1", "18446744073709551615"},
          std::tuple{""sv, "none", "none"}, std::tuple{"\1\1\1"sv, "none", "none"},
          std::tuple{"\1\1\1\1\1\1\1\1\1"sv, "none", "none"}}) {
        QVRuleCheckerSysCtlFunction function([bytes](std::string_view name) {
            return name == "x" ? std::optional(KernelParameter{KernelParameter::Form::number, "",
                                                               std::string(bytes)})
                               : std::nullopt;
        });
        EXPECT_EQ(shown(function.resultFor(Value::string("integer.x"), false)), number);
        EXPECT_EQ(shown(function.resultFor(Value::string("unsignedInteger.x"), false)),
                  unsignedNumber);
    }
}

} // namespace
} // namespace qv::test
