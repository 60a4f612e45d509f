// Measures the judgement of a program's signature: the first time, against the command-line digest
// of the same file, and again while nothing has changed.
//
//   bench_static_code [SIZE-IN-MIB]

#include "platform/foundation/os/Descriptor.h"
#include "platform/security/examination/CodeExaminer.h"
#include "platform/security/signature/CodeSigner.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"
#include "support/TemporaryDirectory.h"
#include "support/TestAuthority.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <spawn.h>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <variant>

namespace {

using Seconds = std::chrono::duration<double>;

constexpr int kRounds = 5;

double fastest(int rounds, const std::function<void()>& work) {
    double best = 1e9;
    for (int round = 0; round < rounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        best = std::min(best, Seconds(std::chrono::steady_clock::now() - begin).count());
    }
    return best;
}

void need(bool fact, std::string_view what) {
    if (!fact) {
        throw std::runtime_error(std::string(what));
    }
}

// The peer: its process start is part of it, some milliseconds.
void digestOnCommandLine(std::string file) {
    std::string program = "openssl";
    std::string command = "dgst";
    std::string algorithm = "-sha256";
    const std::array<char*, 5> arguments = {program.data(), command.data(), algorithm.data(),
                                            file.data(), nullptr};
    posix_spawn_file_actions_t actions{};
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error =
        ::posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    need(error == 0 && ::waitpid(child, &status, 0) == child && status == 0, "openssl dgst");
}

constexpr std::chrono::seconds kSettlingTime{4};

void measure(std::size_t mebibytes) {
    const qv::test::TemporaryDirectory folder;
    const qv::test::TestAuthority authority;
    authority.anchorIn(folder / "anchors.d");
    const auto path = folder.path() / "program";
    qv::test::copySmallProgram(path);
    std::string filling(mebibytes << 20U, '\0');
    for (std::size_t at = 0; at < filling.size(); at += 8) {
        filling[at] = static_cast<char>(at >> 12U);
    }
    {
        const qv::Descriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
        need(::write(file.get(), filling.data(), filling.size()) ==
                 static_cast<ssize_t>(filling.size()),
             "writing the program");
    }
    const auto outcome = qv::CodeSigner::sign(path, authority.requestIn(folder / "identity"));
    need(outcome.has_value(), outcome ? "" : outcome.error().description());

    const auto examine = [&](qv::CodeExaminer& examiner) {
        const qv::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        const auto code = std::get<std::shared_ptr<const qv::StaticCode>>(
            examiner.examine(file.get(), qv::CodeExaminer::Deadline::max()));
        need(code->status() == 0 && code->facts().chain.back().vendorRoot, code->reason());
    };
    qv::CodeExaminer forgetful(folder / "anchors.d", ::geteuid(),
                               qv::ExaminationCache(::geteuid() + 1));
    qv::CodeExaminer examiner(folder / "anchors.d", ::geteuid(), qv::ExaminationCache(::geteuid()));
    // A file that was just changed is examined every time.
    std::this_thread::sleep_for(kSettlingTime);
    const double peer = fastest(kRounds, [&] { digestOnCommandLine(path); });
    const double cold = fastest(kRounds, [&] { examine(forgetful); });
    examine(examiner);
    const double warm = fastest(100 * kRounds, [&] { examine(examiner); });
    fmt::print("signed program of {} MiB\n", mebibytes);
    fmt::print("openssl dgst -sha256  {:10.3f} ms\n", peer * 1e3);
    fmt::print("first examination     {:10.3f} ms   {:.2f} of the peer\n", cold * 1e3, cold / peer);
    fmt::print("warm examination      {:10.3f} us   1/{:.0f} of the first\n", warm * 1e6,
               cold / warm);
}

} // namespace

int main(int argc, char** argv) {
    std::size_t mebibytes = 100;
    if (argc > 1) {
        const std::string_view text = argv[1];
        std::from_chars(text.data(), text.data() + text.size(), mebibytes);
    }
    try {
        measure(std::clamp<std::size_t>(mebibytes, 1, 250));
    } catch (const std::exception& failure) {
        fmt::print(stderr, "bench_static_code: {}\n", failure.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
