// Tests several writers of one folder, and writers that are killed: nothing is lost, nothing is
// halved.

#include "platform/preferences/Support.h"
#include "support/BuildFolder.h"

#include <fmt/core.h>

#include <csignal>
#include <random>
#include <sys/wait.h>
#include <thread>

namespace qv::test {
namespace {

class ConcurrentWriters : public PreferencesTest {
protected:
    ConcurrentWriters() {
        PreferenceEnvironment patient = environment();
        patient.lockPatience = kPatience;
        writer_.emplace(std::move(patient));
    }

    bool store(const std::string& key, const Value& value) {
        writer_->setValue(key, value, domain_);
        return !writer_->synchronize(domain_);
    }

    std::optional<PreferenceFiles> writer_;
    PreferencesDomain domain_ = mine("shared");
};

TEST_F(ConcurrentWriters, LoseNoneOfTheirKeys) {
    constexpr int kWriters = 2;
    constexpr int kTimes = 100;
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.push_back(::fork());
        if (writers.back() == 0) {
            bool good = true;
            for (int i = 0; i < kTimes; ++i) {
                good = store(fmt::format("{}.{}", writer, i), Value::integer(i)) && good;
            }
            ::_exit(good ? 0 : 1);
        }
    }
    for (const pid_t writer : writers) {
        int status = -1;
        EXPECT_EQ(::waitpid(writer, &status, 0), writer);
        EXPECT_EQ(status, 0) << "a write failed";
    }
    const auto values = writer_->values(domain_).value();
    ASSERT_TRUE(values);
    EXPECT_EQ(values->asDictionary().size(), std::size_t{kWriters} * kTimes);
    EXPECT_EQ(namesIn(config_), std::set<std::string>{"shared.plist"});
}

TEST_F(ConcurrentWriters, LeaveOldOrNewValueWhenKilled) {
    const Value padding = Value::data(std::string(20'000, 'x')); // this takes some time
    ASSERT_TRUE(store("padding", padding));
    ASSERT_TRUE(store("number", Value::integer(0)));
    std::minstd_rand random; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same moments every time
    std::int64_t number = 0;
    for (int round = 0; round < (isSanitized() ? 25 : 100); ++round) {
        const pid_t writer = ::fork();
        if (writer == 0) {
            for (std::int64_t next = number + 1; store("number", Value::integer(next)); ++next) {
            }
            ::_exit(1);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        ::kill(writer, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        EXPECT_TRUE(WIFSIGNALED(status)) << "it had ended by itself";
        const auto stored = writer_->copyValue("number", domain_);
        ASSERT_TRUE(stored && stored->is(Value::Kind::integer)) << "neither old nor new";
        ASSERT_GE(stored->asInteger(), number);
        ASSERT_EQ(writer_->copyValue("padding", domain_), padding);
        number = stored->asInteger() + 1;
        ASSERT_TRUE(store("number", Value::integer(number))) << "the lock is free again";
        ASSERT_EQ(namesIn(config_), std::set<std::string>{"shared.plist"});
    }
}

} // namespace
} // namespace qv::test
