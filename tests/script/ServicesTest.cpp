#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/values/Exception.h"
#include "platform/preferences/PreferencesService.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "script/ScriptEngine.h"
#include "script/Steps.h"
#include "support/StartedProgram.h"

#include <gmock/gmock.h>

#include <future>
#include <thread>
#include <unistd.h>

namespace qv {
namespace {

using test::number;
using test::text;
using testing::HasSubstr;
using testing::NiceMock;
using testing::Return;

const PreferencesDomain kDomain{"com.example.App", "kCFPreferencesAnyUser",
                                "kCFPreferencesAnyHost"};

class MockWorkspace : public WorkspaceService {
public:
    MOCK_METHOD(Error, launchApplicationAtURL,
                (const std::optional<URL>&, WorkspaceLaunchOptions, const Value&), (override));
    MOCK_METHOD(void, noteSession, (), (override));
    MOCK_METHOD(std::optional<std::string>, absolutePathForAppBundleWithIdentifier,
                (std::string_view), (override));
    MOCK_METHOD(std::optional<std::string>, fullPathForApplication, (std::string_view), (override));
    MOCK_METHOD(ApplicationVersion, versionOfApplicationAtPath,
                (const std::string&, std::string_view), (override));
};

class MockPreferences : public PreferencesService {
public:
    MOCK_METHOD(void, setValue,
                (const std::optional<std::string>&, const std::optional<Value>&,
                 const PreferencesDomain&),
                (override));
    MOCK_METHOD(Error, synchronize, (const PreferencesDomain&), (override));
    MOCK_METHOD(std::optional<Value>, copyValue, (std::string_view, const PreferencesDomain&),
                (override));
    MOCK_METHOD(std::optional<Value>, copyAppValue, (std::string_view, const std::string&),
                (override));
};

class MockAccessibility : public AccessibilityService {
public:
    MOCK_METHOD(AXError, makeProcessTrusted, (const std::string&), (override));
};

class Services : public testing::Test {
protected:
    Error replayOne(test::Fields fields) {
        ScriptEngine::of(script).services = {.trash = nullptr,
                                             .workspace = workspace,
                                             .preferences = preferences,
                                             .accessibility = accessibility,
                                             .applications = {}};
        return test::replay(script, Value::array({Value::dictionary(fields)})).error;
    }

    QVCatalogScript script;
    std::shared_ptr<MockWorkspace> workspace = std::make_shared<NiceMock<MockWorkspace>>();
    std::shared_ptr<MockPreferences> preferences = std::make_shared<NiceMock<MockPreferences>>();
    std::shared_ptr<MockAccessibility> accessibility = std::make_shared<MockAccessibility>();
};

TEST_F(Services, WaitUntilTheProcessEnds) {
    test::StartedProgram sleeper({.command = {"/bin/sleep", "1000"}});
    std::promise<void> noted; // it waits, or is about to
    EXPECT_CALL(*workspace, noteSession).WillOnce([&] { noted.set_value(); });
    const std::jthread killer([&] {
        noted.get_future().wait();
        sleeper.kill();
    });
    EXPECT_FALSE(replayOne({{"operation", number(0)}, {"arg1", number(sleeper.pid())}}));
    EXPECT_FALSE(sleeper.isRunning());
}

// None of these is a process whose end somebody could wait for; a wait would never end.
TEST_F(Services, WaitForNoProcessThatCannotEnd) {
    test::StartedProgram zombie({.command = {"/bin/true"}});
    ASSERT_TRUE(zombie.waitForEnd());
    std::promise<pid_t> started;
    std::promise<void> end;
    const auto thread = std::async(std::launch::async, [&] {
        started.set_value(::gettid());
        end.get_future().wait();
    });
    const pid_t other = started.get_future().get();
    const std::int64_t cases[] = {0, -1, -12345, 0x7FFFFFFF, zombie.pid(), other, ::getpid()};
    for (const std::int64_t pid : cases) {
        EXPECT_FALSE(replayOne({{"operation", number(0)}, {"arg1", number(pid)}})) << pid;
    }
    EXPECT_FALSE(replayOne({{"operation", number(0)}, {"arg1", text("-5")}}));
    EXPECT_FALSE(replayOne({{"operation", number(0)}})) << "a missing number is 0";
    end.set_value();
}

TEST_F(Services, HandOnURLsAndPaths) {
    const Error answer("NSOSStatusErrorDomain", -10810);
    EXPECT_CALL(*workspace, launchApplicationAtURL(URL::URLWithString("file:///X.app/"),
                                                   kWorkspaceLaunchDefault, Value::dictionary({})))
        .WillOnce(Return(answer));
    EXPECT_EQ(replayOne({{"operation", number(1)}, {"URL", text("file:///X.app/")}}), answer);
    const Error error = replayOne({{"operation", number(1)}, {"URL", text("no url at all")}});
    EXPECT_EQ(error.code(), 4);
    EXPECT_THAT(error.localizedDescription(), HasSubstr("\"URL\" of the step is “no url at all”"));
    EXPECT_CALL(*accessibility, makeProcessTrusted("/usr/bin/a b"));
    EXPECT_FALSE(replayOne({{"operation", number(14)}, {"URL", text("file:///usr/bin/a%20b")}}));
    EXPECT_CALL(*accessibility, makeProcessTrusted("")) // no path of this machine
        .WillOnce(Return(kAXErrorCannotComplete));
    EXPECT_EQ(replayOne({{"operation", number(14)}, {"URL", text("https://x/")}}),
              Error("AXError", -25204));
}

TEST_F(Services, SetAPreferenceAndThenSynchronize) {
    const Value value = Value::array({number(1), text("a b")});
    const testing::InSequence inSequence;
    EXPECT_CALL(*preferences,
                setValue(std::optional<std::string>("Key"), std::optional(value), kDomain));
    EXPECT_CALL(*preferences, synchronize(kDomain)).WillOnce(Return(Error::posix(EACCES)));
    EXPECT_EQ(replayOne({{"operation", number(9)},
                         {"arg1", text("com.example.App")},
                         {"arg2", text("Key")},
                         {"arg3", value},
                         {"arg4", text("kCFPreferencesAnyUser")},
                         {"arg5", text("kCFPreferencesAnyHost")}})
                  .localizedDescription(),
              "Could net set preferences com.example.App > Key "
              "(kCFPreferencesAnyUser,kCFPreferencesAnyHost) to (\n    1,\n    \"a b\"\n)");
    EXPECT_CALL(*preferences, setValue(std::optional<std::string>(), std::optional<Value>(),
                                       PreferencesDomain()));
    EXPECT_CALL(*preferences, synchronize(PreferencesDomain()));
    EXPECT_FALSE(replayOne({{"operation", number(9)}}));
    for (const char* key : {"arg1", "arg2", "arg4", "arg5"}) {
        EXPECT_THROW(static_cast<void>(replayOne({{"operation", number(9)}, {key, number(5)}})),
                     Exception)
            << key;
    }
}

} // namespace
} // namespace qv
