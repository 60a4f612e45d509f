#include "platform/accessibility/AccessibilityService.h"
#include "platform/foundation/values/Exception.h"
#include "platform/preferences/PreferencesService.h"
#include "platform/workspace/launch/WorkspaceService.h"
#include "script/ScriptEngine.h"
#include "script/Steps.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <unistd.h>

namespace qv {
namespace {

using test::number;
using test::text;

const PreferencesDomain kDomain{"com.example.App", "kCFPreferencesAnyUser",
                                "kCFPreferencesAnyHost"};

// The services of a machine that only notes what it is asked.
class NotedWorkspace : public WorkspaceService {
public:
    Error launchApplicationAtURL(const std::optional<URL>& url, WorkspaceLaunchOptions options,
                                 const Value& configuration) override {
        EXPECT_EQ(options, 65536U);
        EXPECT_EQ(configuration, Value::dictionary({}));
        launched = url->absoluteString();
        return answer;
    }
    void noteSession() override { sessionIsNoted = true; }
    std::optional<std::string> absolutePathForAppBundleWithIdentifier(std::string_view) override {
        return std::nullopt;
    }
    std::optional<std::string> fullPathForApplication(std::string_view) override {
        return std::nullopt;
    }

    std::string launched;
    std::atomic<bool> sessionIsNoted = false;
    Error answer;
};

class NotedPreferences : public PreferencesService {
public:
    void setValue(const std::optional<std::string>& key, const std::optional<Value>& value,
                  const PreferencesDomain& domain) override {
        set = {key, value, domain};
    }
    Error synchronize(const PreferencesDomain& domain) override {
        synchronized = domain;
        return answer;
    }
    std::optional<Value> copyValue(std::string_view, const PreferencesDomain&) override {
        return std::nullopt;
    }
    std::optional<Value> copyAppValue(std::string_view, const std::string&) override {
        return std::nullopt;
    }

    std::tuple<std::optional<std::string>, std::optional<Value>, PreferencesDomain> set;
    PreferencesDomain synchronized;
    Error answer;
};

class NotedAccessibility : public AccessibilityService {
public:
    AXError makeProcessTrusted(const std::string& path) override {
        trusted = path;
        return answer;
    }
    std::string trusted;
    AXError answer = kAXErrorSuccess;
};

class Services : public testing::Test {
protected:
    test::Replayed replay(const Value& steps) {
        ScriptEngine::of(script).services = {.trash = nullptr,
                                             .workspace = workspace,
                                             .preferences = preferences,
                                             .accessibility = accessibility,
                                             .applications = {}};
        return test::replay(script, steps);
    }
    Error replayOne(test::Fields fields) {
        return replay(Value::array({Value::dictionary(fields)})).error;
    }

    QVCatalogScript script;
    std::shared_ptr<NotedWorkspace> workspace = std::make_shared<NotedWorkspace>();
    std::shared_ptr<NotedPreferences> preferences = std::make_shared<NotedPreferences>();
    std::shared_ptr<NotedAccessibility> accessibility = std::make_shared<NotedAccessibility>();
};

TEST_F(Services, WaitingEndsWithTheProcess) {
    const test::TemporaryDirectory folder;
    test::StartedProgram sleeper({.command = {"/bin/sleep", "1000"}});
    const std::jthread killer([&] {
        while (!workspace->sessionIsNoted) { // it waits, or is about to
            std::this_thread::yield();
        }
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

TEST_F(Services, LaunchingHandsOnTheURLAndTheWorkspacesError) {
    EXPECT_FALSE(
        replayOne({{"operation", number(1)}, {"URL", text("file:///Applications/X.app/")}}));
    EXPECT_EQ(workspace->launched, "file:///Applications/X.app/");
    workspace->answer = Error("NSOSStatusErrorDomain", -10810);
    EXPECT_EQ(replayOne({{"operation", number(1)}, {"URL", text("file:///a")}}), workspace->answer);
    const Error error = replayOne({{"operation", number(1)}, {"URL", text("no url at all")}});
    EXPECT_EQ(error.code(), 4);
    EXPECT_NE(error.localizedDescription().find("\"URL\" of the step is “no url at all”"),
              std::string::npos);
    EXPECT_EQ(workspace->launched, "file:///a");
}

TEST_F(Services, APreferenceIsSetAndThenSynchronized) {
    const Value value = Value::array({number(1), text("a b")});
    const test::Fields step = {{"operation", number(9)},
                               {"arg1", text("com.example.App")},
                               {"arg2", text("Key")},
                               {"arg3", value},
                               {"arg4", text("kCFPreferencesAnyUser")},
                               {"arg5", text("kCFPreferencesAnyHost")}};
    EXPECT_FALSE(replayOne(step));
    EXPECT_EQ(preferences->set, std::tuple("Key", std::optional(value), kDomain));
    EXPECT_EQ(preferences->synchronized, kDomain);

    preferences->answer = Error::posix(EACCES);
    EXPECT_EQ(replayOne(step),
              Error::withDescription("QVCatalogScriptErrorDomain", 0,
                                     "Could net set preferences com.example.App > Key "
                                     "(kCFPreferencesAnyUser,kCFPreferencesAnyHost) to (\n    1,\n "
                                     "   \"a b\"\n)"));
}

TEST_F(Services, AMissingPartOfAPreferenceIsHandedOnAsMissing) {
    EXPECT_FALSE(replayOne({{"operation", number(9)},
                            {"arg1", text("com.example.App")},
                            {"arg2", text("Key")},
                            {"arg4", text("kCFPreferencesAnyUser")},
                            {"arg5", text("kCFPreferencesAnyHost")}}));
    EXPECT_EQ(preferences->set, std::tuple("Key", std::optional<Value>(), kDomain));
    preferences->answer = Error::posix(EINVAL);
    EXPECT_EQ(replayOne({{"operation", number(9)}}),
              Error::withDescription("QVCatalogScriptErrorDomain", 0,
                                     "Could net set preferences (null) > (null) ((null),(null)) "
                                     "to (null)"));
    EXPECT_EQ(preferences->synchronized, PreferencesDomain());
    // What is there but no name is the sender's fault.
    for (const char* key : {"arg1", "arg2", "arg4", "arg5"}) {
        EXPECT_THROW(static_cast<void>(replayOne({{"operation", number(9)}, {key, number(5)}})),
                     Exception)
            << key;
    }
}

TEST_F(Services, APreferenceIsRecordedWithoutWhatIsMissing) {
    ASSERT_TRUE(script.beginRecording());
    EXPECT_FALSE(script.setPreferencesForApplicationID(text("a"), text("k"), std::nullopt,
                                                       text("u"), text("h")));
    EXPECT_FALSE(script.waitForQuitOfApplicationWithPID(-7));
    EXPECT_FALSE(script.launchApplicationAtURL(URL::URLWithString("file:///a")));
    EXPECT_FALSE(script.makeProcessAXTrusted(URL::URLWithString("file:///b")));
    const Value steps = script.endRecording().value();
    const std::span<const Value> recorded = steps.asArray().subspan(3);
    ASSERT_EQ(recorded.size(), 4U);
    EXPECT_EQ(recorded[0], Value::dictionary({{"operation", number(9)},
                                              {"arg1", text("a")},
                                              {"arg2", text("k")},
                                              {"arg4", text("u")},
                                              {"arg5", text("h")}}));
    EXPECT_EQ(recorded[1], Value::dictionary({{"operation", number(0)}, {"arg1", number(-7)}}));
    EXPECT_EQ(recorded[2],
              Value::dictionary({{"operation", number(1)}, {"URL", text("file:///a")}}));
    EXPECT_EQ(recorded[3],
              Value::dictionary({{"operation", number(14)}, {"URL", text("file:///b")}}));
    EXPECT_EQ(workspace->launched, "");
}

TEST_F(Services, TrustFailsWithTheValueAndNothingElse) {
    EXPECT_FALSE(replayOne({{"operation", number(14)}, {"URL", text("file:///usr/bin/a%20b")}}));
    EXPECT_EQ(accessibility->trusted, "/usr/bin/a b");
    accessibility->answer = kAXErrorCannotComplete;
    const Error error = replayOne({{"operation", number(14)}, {"URL", text("https://x/")}});
    EXPECT_EQ(accessibility->trusted, "") << "no path of this machine";
    EXPECT_EQ(error, Error("AXError", -25204));
    EXPECT_TRUE(error.userInfo().asDictionary().empty());
}

} // namespace
} // namespace qv
