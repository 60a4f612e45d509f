// The record of a run: a script of 10,000 changes of a mode, replayed with a record and without
// one, by turns. The record goes to a socket that is read by a process of its own, as the journal
// does, and to one that nobody reads. Beside it, what writing all of it takes after the reply.

#include "platform/foundation/values/Value.h"
#include "script/QVCatalogScript.h"
#include "script/ScriptEngine.h"
#include "script/record/RunRecord.h"
#include "support/Contest.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using qv::RunRecord;
using qv::Value;

constexpr std::size_t kSteps = 10'000;
constexpr int kRounds = 15;

Value scriptFor(const std::string& file) {
    std::vector<Value> steps;
    for (std::size_t i = 0; i < kSteps; ++i) {
        steps.push_back(Value::dictionary({{"operation", Value::integer(13)},
                                           {"URL", Value::string("file://" + file)},
                                           {"arg1", Value::integer(i % 2 == 0 ? 0644 : 0600)}}));
    }
    return Value::array(std::move(steps));
}

double replay(const Value& steps, RunRecord* record) {
    qv::QVCatalogScript script;
    script.setIsPriviledged(true);
    qv::ScriptEngine::of(script).observer = record;
    const std::clock_t begin = std::clock(); // of this process's processor
    if (record != nullptr) {
        record->begin(steps);
    }
    if (!script.executeRecording(steps, nullptr, nullptr)) {
        throw std::runtime_error("the replay failed");
    }
    if (record != nullptr) {
        record->end(true, -1, {});
    }
    return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

int listeningSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("no socket");
    }
    return socket;
}

pid_t readerOf(int socket) {
    const pid_t child = ::fork();
    if (child == 0) {
        std::vector<char> datagram(std::size_t{1} << 16U);
        while (::recv(socket, datagram.data(), datagram.size(), 0) > 0) {
        }
        ::_exit(0);
    }
    return child;
}

void contest(std::string_view name, const Value& steps, const std::string& socket) {
    qv::log::RecordSink sink("bench", socket, "/nowhere");
    std::vector<double> with;
    std::vector<double> without;
    std::vector<double> rest;
    for (int round = 0; round < kRounds; ++round) {
        without.push_back(replay(steps, nullptr));
        RunRecord record(sink, {}, qv::SecretValues::digested);
        with.push_back(replay(steps, &record));
        const auto begin = std::chrono::steady_clock::now();
        while (record.writeFor(std::chrono::seconds(1)) == RunRecord::Written::some) {
        }
        rest.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    using qv::bench::median;
    fmt::print("{:28} {:.1f} ms, {:.3f} of the time without a record (goal 1.05); the rest after "
               "it {:.1f} ms\n",
               name, median(with) * 1e3, median(with) / median(without), median(rest) * 1e3);
}

void run() {
    const qv::test::TemporaryDirectory folder;
    folder.write("file", "");
    const Value steps = scriptFor(folder / "file");
    const int read = listeningSocket(folder / "read");
    const pid_t reader = readerOf(read);
    contest("a journal that reads", steps, folder / "read");
    ::kill(reader, SIGKILL);
    const int unread = listeningSocket(folder / "unread");
    contest("one that does not", steps, folder / "unread");
    ::close(read);
    ::close(unread);
}

} // namespace

int main() {
    try {
        run();
    } catch (const std::exception& exception) {
        fmt::print(stderr, "bench_record: {}\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
