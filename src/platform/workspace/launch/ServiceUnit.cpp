#include "platform/workspace/launch/ServiceUnit.h"

#include "platform/workspace/launch/Bus.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string_view>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kManager = "org.freedesktop.systemd1";
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr const char* kManagerInterface = "org.freedesktop.systemd1.Manager";

// The results of the jobs that have ended, by their object paths.
using Results = std::map<std::string, std::string>;

std::uint64_t microsecondsTo(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now());
    return static_cast<std::uint64_t>(std::max<std::int64_t>(left.count(), 1));
}

// A service manager puts variables into the arguments of a program, unless the sign is doubled.
std::string literally(std::string_view argument) {
    std::string text;
    for (const char each : argument) {
        text.append(each == '$' ? 2 : 1, each);
    }
    return text;
}

// Appends to a message; of the first failure the rest does nothing.
class Appender {
public:
    explicit Appender(sd_bus_message* message) : message_(message) {}
    [[nodiscard]] int status() const noexcept { return status_; }

    void text(const std::string& value) {
        note([&] { return ::sd_bus_message_append_basic(message_, 's', value.c_str()); });
    }
    template <typename Content> void container(char type, const char* of, const Content& content) {
        note([&] { return ::sd_bus_message_open_container(message_, type, of); });
        content();
        note([&] { return ::sd_bus_message_close_container(message_); });
    }
    template <typename Content>
    void property(const std::string& name, const char* type, const Content& content) {
        container('r', "sv", [&] {
            text(name);
            container('v', type, content);
        });
    }
    void property(const std::string& name, const std::string& value) {
        if (!value.empty()) {
            property(name, "s", [&] { text(value); });
        }
    }
    void texts(const std::vector<std::string>& values) {
        container('a', "s",
                  [&] { std::ranges::for_each(values, [&](const auto& each) { text(each); }); });
    }
    void no() {
        const int value = 0;
        note([&] { return ::sd_bus_message_append_basic(message_, 'b', &value); });
    }

private:
    template <typename Call> void note(const Call& call) {
        if (status_ >= 0) {
            status_ = call();
        }
    }
    sd_bus_message* message_;
    int status_ = 0;
};

void appendCommand(Appender& to, const std::vector<std::string>& command) {
    std::vector<std::string> words = {command.front()};
    std::transform(command.begin() + 1, command.end(), std::back_inserter(words), literally);
    to.property("ExecStart", "a(sasb)", [&] {
        to.container('a', "(sasb)", [&] {
            to.container('r', "sasb", [&] {
                to.text(command.front());
                to.texts(words);
                to.no(); // a failure of the command counts
            });
        });
    });
}

int appendUnit(sd_bus_message* message, const ServiceUnit& unit) {
    Appender to(message);
    to.text(unit.name);
    to.text("fail");
    to.container('a', "(sv)", [&] {
        to.property("Description", unit.description);
        to.property("Type", "exec"); // so that a program that cannot be executed is reported
        to.property("CollectMode", "inactive-or-failed");
        to.property("Slice", unit.slice);
        to.property("User", unit.user);
        to.property("WorkingDirectory", unit.workingFolder);
        to.property("Environment", "as", [&] { to.texts(unit.environment); });
        appendCommand(to, unit.command);
    });
    to.container('a', "(sa(sv))", [] {});
    return to.status();
}

int noteResult(sd_bus_message* signal, void* results, sd_bus_error* /*error*/) {
    std::uint32_t number = 0;
    const char* job = nullptr;
    const char* unit = nullptr;
    const char* result = nullptr;
    if (::sd_bus_message_read(signal, "uoss", &number, &job, &unit, &result) >= 0) {
        static_cast<Results*>(results)->emplace(job, result);
    }
    return 0;
}

// Returns an empty text, or the fault.
std::string resultOf(sd_bus* bus, const std::string& job, const Results& results,
                     Clock::time_point deadline) {
    while (!results.contains(job)) {
        if (Clock::now() >= deadline) {
            return strerrordesc_np(ETIMEDOUT);
        }
        int status = ::sd_bus_process(bus, nullptr);
        if (status == 0) {
            status = ::sd_bus_wait(bus, microsecondsTo(deadline));
        }
        if (status < 0 && status != -EINTR) {
            return strerrordesc_np(-status);
        }
    }
    const std::string& result = results.at(job);
    return result == "done" ? "" : fmt::format("its program was not executed ({})", result);
}

} // namespace

std::string startUnit(const std::string& socketPath, const ServiceUnit& unit,
                      std::chrono::steady_clock::time_point deadline) {
    const auto bus = connectToBus("unix:path=" + socketPath, BusPeer::direct,
                                  std::chrono::microseconds(microsecondsTo(deadline)));
    if (!bus) {
        return fmt::format("it cannot be reached: {}", strerrordesc_np(-bus.error()));
    }
    Results results;
    sd_bus_message* made = nullptr;
    int status = ::sd_bus_match_signal(bus->get(), nullptr, nullptr, kManagerPath,
                                       kManagerInterface, "JobRemoved", noteResult, &results);
    if (status >= 0) {
        status = ::sd_bus_message_new_method_call(bus->get(), &made, kManager, kManagerPath,
                                                  kManagerInterface, "StartTransientUnit");
    }
    const BusMessage call(made);
    if (status >= 0) {
        status = appendUnit(made, unit);
    }
    BusError error;
    sd_bus_message* answered = nullptr;
    if (status >= 0) {
        status = ::sd_bus_call(bus->get(), made, microsecondsTo(deadline), error.get(), &answered);
    }
    const BusMessage answer(answered);
    const char* job = nullptr;
    if (status >= 0) {
        status = ::sd_bus_message_read(answered, "o", &job);
    }
    return status < 0 ? error.text(status) : resultOf(bus->get(), job, results, deadline);
}

} // namespace qv
