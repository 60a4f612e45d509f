// A kernel parameter by its name, against opening, reading and closing its file.
// Goal: at most 1.3 times the time.

#include "platform/system/KernelParameters.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kReadings = 2'000;
constexpr int kRounds = 101;

template <typename Reading> double nanosecondsOf(const Reading& reading) {
    const auto begin = Clock::now();
    for (int i = 0; i < kReadings; ++i) {
        if (!reading()) {
            throw std::runtime_error("a parameter cannot be read");
        }
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / kReadings;
}

double median(std::vector<double>& values) {
    std::ranges::nth_element(values, values.begin() + kRounds / 2);
    return values[kRounds / 2];
}

void measure(std::string_view name, const char* path) {
    const qv::KernelParameters parameters({}, nullptr);
    std::vector<double> ours;
    std::vector<double> files;
    for (int round = 0; round < kRounds; ++round) {
        ours.push_back(nanosecondsOf([&] { return parameters.read(name).has_value(); }));
        files.push_back(nanosecondsOf([&] {
            std::array<char, 4096> buffer; // NOLINT: filled by the kernel
            const int file = ::open(path, O_RDONLY | O_CLOEXEC);
            const ssize_t length = ::read(file, buffer.data(), buffer.size());
            return ::close(file) == 0 && length > 0;
        }));
    }
    const double our = median(ours);
    const double theirs = median(files);
    fmt::print("{}: {:.0f} ns, its file {:.0f} ns: ratio {:.2f}; goal 1.3: {}\n", name, our, theirs,
               our / theirs, our / theirs <= 1.3 ? "goal met" : "goal missed");
}

} // namespace

int main() {
    try {
        measure("kernel.pid_max", "/proc/sys/kernel/pid_max");
        measure("kern.osrelease", "/proc/sys/kernel/osrelease");
        measure("net.ipv4.ip_forward", "/proc/sys/net/ipv4/ip_forward");
    } catch (const std::exception& exception) {
        fmt::print(stderr, "bench_parameters: {}\n", exception.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
