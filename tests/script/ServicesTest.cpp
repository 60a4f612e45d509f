#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/values/Exception.h"
#include "platform/preferences/PreferencesService.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "script/ScriptEngine.h"
#include "script/Steps.h"
#include "support/StartedProgram.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <thread>
#include <unistd.h>

namespace qv {
namespace {

using test::number;
using test::text;
using testing::_;
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

TEST_F(Services, WaitingEndsWithTheProcess) {
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
TEST_F(Services, WaitingForWhatIsNoProcessEndsAtOnce) {
    test::StartedProgram zombie({.command = {"/bin/true"}});
    ASSERT_TRUE(zombie.waitForEnd());
    std::atomic<pid_t> thread = 0;
    const std::jthread other([&](const std::stop_token& stop) {
        thread = ::gettid();
        while (!stop.stop_requested()) {
            std::this_thread::yield();
        }
    });
    while (thread == 0) {
        std::this_thread::yield();
    }
    const std::int64_t cases[] = {0, -1, -12345, 0x7FFFFFFF, zombie.pid(), thread, ::getpid()};
    for (const std::int64_t pid : cases) {
        EXPECT_FALSE(replayOne({{"operation", number(0)}, {"arg1", number(pid)}})) << pid;
    }
    EXPECT_FALSE(replayOne({{"operation", number(0)}, {"arg1", text("-5")}}));
    EXPECT_FALSE(replayOne({{"operation", number(0)}})) << "a missing number is 0";
}

TEST_F(Services, HandOnTheURLOfAnApplication) {
    const Error answer("NSOSStatusErrorDomain", -10810);
    EXPECT_CALL(*workspace,
                launchApplicationAtURL(_, kWorkspaceLaunchDefault, Value::dictionary({})))
        .WillOnce([&](const std::optional<URL>& url, auto, const Value&) {
            EXPECT_EQ(url->absoluteString(), "file:///X.app/");
            return answer;
        });
    EXPECT_EQ(replayOne({{"operation", number(1)}, {"URL", text("file:///X.app/")}}), answer);
    const Error error = replayOne({{"operation", number(1)}, {"URL", text("no url at all")}});
    EXPECT_EQ(error.code(), 4);
    EXPECT_NE(error.localizedDescription().find("\"URL\" of the step is “no url at all”"),
              std::string::npos);
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

TEST_F(Services, HandOnThePathOfATrustedProgram) {
    EXPECT_CALL(*accessibility, makeProcessTrusted("/usr/bin/a b"));
    EXPECT_FALSE(replayOne({{"operation", number(14)}, {"URL", text("file:///usr/bin/a%20b")}}));
    EXPECT_CALL(*accessibility, makeProcessTrusted("")) // no path of this machine
        .WillOnce(Return(kAXErrorCannotComplete));
    EXPECT_EQ(replayOne({{"operation", number(14)}, {"URL", text("https://x/")}}),
              Error("AXError", -25204));
}

} // namespace
} // namespace qv
