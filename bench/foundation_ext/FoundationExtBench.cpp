// 1. The order of versions: comparisons a second, beside the C library's own order of versions, and
//    allocations. Goal: 20 million a second, none.
// 2. MD5 and SHA-1 of a file against the command-line digest of the same file. Goal: at most 1.05
//    of its time.
//
//   bench_foundation_ext [SIZE-IN-MIB]

#include "foundation_ext/QVStringTools.h"
#include "foundation_ext/QVTransforms.h"
#include "platform/foundation/os/Descriptor.h"
#include "support/CountedAllocations.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using Seconds = std::chrono::duration<double>;

constexpr int kRounds = 9;

void need(bool fact, std::string_view what) {
    if (!fact) {
        throw std::runtime_error(std::string(what));
    }
}

template <typename Work> double secondsOf(const Work& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return Seconds(std::chrono::steady_clock::now() - begin).count();
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

/// Medians of us and the peer, which take turns.
struct Medians {
    double ours;
    double peers;
};

template <typename Ours, typename Peers>
Medians measuredInTurns(const Ours& ours, const Peers& peers) {
    std::vector<double> ourRounds;
    std::vector<double> peersRounds;
    ours(); // the first time warms up
    peers();
    for (int round = 0; round < kRounds; ++round) {
        ourRounds.push_back(secondsOf(ours));
        peersRounds.push_back(secondsOf(peers));
    }
    return {median(ourRounds), median(peersRounds)};
}

constexpr std::array kVersions = {
    "10.6.8",  "10.7",      "10.10",   "10.9",    "2.0",          "2",       "1.2b",
    "1.2",     "14.2.1",    "14.2.1",  "6.1.0",   "6.1.0-13",     "3.0.19",  "3.0.11",
    "1.0.3",   "1.0.3",     "72.1",    "9.1.0",   "252.31",       "252.4",   "4.12.5 beta",
    "4.12.5",  "2024.11.1", "2024.9",  "5",       "12",           "0.9.8zh", "1.1.1w",
    "12.2.0",  "12.2.0.14", "19.1.4",  "19.1.7",  "1.76.0.1",     "1.76",    "11.0.22 build 7",
    "11.0.22", "100.0.1",   "99.99.9", "8.4.2.1", "8.4.2.1.0.16",
};

void measureVersions() {
    constexpr int kPasses = 2000;
    constexpr double kGoal = 20e6;
    constexpr double kComparisons = 1.0 * kPasses * kVersions.size() * kVersions.size();
    const std::vector<std::string> versions(kVersions.begin(), kVersions.end());
    const auto everyPair = [&](const auto& compare) {
        std::int64_t sum = 0;
        for (int pass = 0; pass < kPasses; ++pass) {
            for (const std::string& left : versions) {
                for (const std::string& right : versions) {
                    sum += compare(left, right);
                }
            }
        }
        need(sum != 0, "no version is newer than another one");
    };
    const auto ours = [&] {
        everyPair([](const std::string& left, const std::string& right) {
            return static_cast<int>(qv::QVStringTools::compareVersionTo(left, right));
        });
    };
    const std::uint64_t before = qv::bench::allocations;
    ours();
    const std::uint64_t allocated = qv::bench::allocations - before;
    const Medians medians = measuredInTurns(ours, [&] {
        everyPair([](const std::string& left, const std::string& right) {
            return ::strverscmp(left.c_str(), right.c_str()) < 0 ? -1 : 2;
        });
    });
    const double rate = kComparisons / medians.ours;
    fmt::print("versions: {:.1f} million comparisons a second, {:.2f} times the speed of "
               "strverscmp, {} allocations; goal 20 million, none: {}\n",
               rate / 1e6, medians.peers / medians.ours, allocated,
               rate >= kGoal && allocated == 0 ? "goal met" : "goal missed");
}

std::string filledFile(const qv::test::TemporaryDirectory& folder, std::size_t mebibytes) {
    std::string path = folder / "file";
    const qv::Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    std::string piece(std::size_t{1} << 20U, '\0');
    for (std::size_t index = 0; index < mebibytes; ++index) {
        for (std::size_t at = 0; at < piece.size(); at += 8) {
            piece[at] = static_cast<char>(index + (at >> 12U));
        }
        need(::write(file.get(), piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()),
             "writing the file");
    }
    return path;
}

// The output of `openssl dgst`; the start of its process is part of it, some milliseconds.
std::string digestOnCommandLine(const std::string& type, const std::string& path) {
    const std::string command = fmt::format("exec openssl dgst -r -{} '{}'", type, path);
    // NOLINTNEXTLINE(cert-env33-c,misc-include-cleaner): the path is our own
    std::FILE* const output = ::popen(command.c_str(), "re");
    need(output != nullptr, "openssl dgst");
    std::array<char, 256> line{};
    const bool read = std::fgets(line.data(), line.size(), output) != nullptr;
    need(::pclose(output) == 0 && read, "openssl dgst");
    const std::string_view text = line.data();
    return std::string(text.substr(0, text.find(' ')));
}

long residentKibibytes() {
    rusage usage{};
    need(::getrusage(RUSAGE_SELF, &usage) == 0, "getrusage");
    return usage.ru_maxrss;
}

void measureDigest(const std::string& name, qv::DigestType type, const std::string& path) {
    constexpr double kGoal = 1.05;
    std::string ours;
    std::string peers;
    const Medians medians = measuredInTurns(
        [&] { ours = qv::QVTransforms::computeDigestStringOfFile(path, type, nullptr).value(); },
        [&] { peers = digestOnCommandLine(name, path); });
    need(ours == peers, "the digests differ");
    const double ratio = medians.ours / medians.peers;
    fmt::print("{}: {:.3f} s, {:.3f} of the {:.3f} s of openssl dgst; goal 1.05: {}\n", name,
               medians.ours, ratio, medians.peers, ratio <= kGoal ? "goal met" : "goal missed");
}

void measureDigests(std::size_t mebibytes) {
    const qv::test::TemporaryDirectory folder;
    const std::string path = filledFile(folder, mebibytes);
    const long before = residentKibibytes();
    fmt::print("digests of a file of {} MiB\n", mebibytes);
    measureDigest("md5", qv::kSecDigestMD5, path);
    measureDigest("sha1", qv::kSecDigestSHA1, path);
    fmt::print("memory that digesting added at its highest: {} KiB\n",
               residentKibibytes() - before);
}

} // namespace

int main(int argc, char** argv) {
    std::size_t mebibytes = 1024;
    if (argc > 1) {
        const std::string_view text = argv[1];
        std::from_chars(text.data(), text.data() + text.size(), mebibytes);
    }
    try {
        measureVersions();
        measureDigests(std::clamp<std::size_t>(mebibytes, 1, 16384));
    } catch (const std::exception& failure) {
        fmt::print(stderr, "bench_foundation_ext: {}\n", failure.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
