// Several writers of one folder, and writers that are killed: nothing is lost, nothing is halved.

#include "platform/preferences/Support.h"

#include <fmt/core.h>

#include <csignal>
#include <random>
#include <sys/wait.h>

namespace qv::test {
namespace {

class ConcurrentWriters : public PreferencesTest {
protected:
    ConcurrentWriters() {
        PreferenceSurroundings patient = surroundings();
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
    constexpr int kTimes = 200;
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

// A writer that stores ever higher numbers, with enough beside them to take some time, and tells
// each once it is stored.
class DoomedWriter {
public:
    template <typename Store> DoomedWriter(int first, const Store& store) {
        PipeEnds pipe = makePipe();
        pid_ = ::fork();
        if (pid_ == 0) {
            pipe.read.reset();
            for (int i = first; store(i); ++i) {
                if (::write(pipe.write.get(), &i, sizeof(i)) != sizeof(i)) {
                    break;
                }
            }
            ::_exit(1);
        }
        told_ = std::move(pipe.read);
    }

    int waitForOne() const {
        int number = -1;
        EXPECT_EQ(::read(told_.get(), &number, sizeof(number)),
                  static_cast<ssize_t>(sizeof(number)));
        return number;
    }

    /// The last number that it told.
    int kill(int lastKnown) const {
        ::kill(pid_, SIGKILL);
        int status = 0;
        EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
        EXPECT_TRUE(WIFSIGNALED(status)) << "it had ended by itself";
        int number = lastKnown;
        while (::read(told_.get(), &number, sizeof(number)) == sizeof(number)) {
            lastKnown = number;
        }
        return lastKnown;
    }

private:
    pid_t pid_ = -1;
    Descriptor told_;
};

TEST_F(ConcurrentWriters, KilledOnesLeaveTheOldValueOrTheNew) {
    constexpr int kRounds = 200;
    const Value padding = Value::data(std::string(20'000, 'x'));
    ASSERT_TRUE(store("padding", padding));
    ASSERT_TRUE(store("number", Value::integer(0)));
    std::minstd_rand random; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same moments every time
    int number = 0;
    int leftovers = 0;
    for (int round = 0; round < kRounds; ++round) {
        const DoomedWriter writer(number + 1,
                                  [&](int i) { return store("number", Value::integer(i)); });
        const int known = writer.waitForOne();
        // Some moment of the next write, which takes about a millisecond.
        const auto moment =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 1500);
        while (std::chrono::steady_clock::now() < moment) {
        }
        const int told = writer.kill(known);
        const auto stored = writer_->copyValue("number", domain_);
        ASSERT_TRUE(stored && stored->is(Value::Kind::integer)) << "neither old nor new";
        number = static_cast<int>(stored->asInteger());
        ASSERT_TRUE(number == told || number == told + 1) << number << " after " << told;
        ASSERT_EQ(writer_->copyValue("padding", domain_), padding);
        leftovers += namesIn(config_).size() > 1 ? 1 : 0;
        ASSERT_TRUE(store("number", Value::integer(++number))) << "the lock is free again";
        ASSERT_EQ(namesIn(config_), std::set<std::string>{"shared.plist"});
    }
    RecordProperty("killed while they had an incomplete file", leftovers);
}

} // namespace
} // namespace qv::test
