#pragma once

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace qv::bench {

/// Binds this process and all that it starts to one processor, for two processes that answer each
/// other: on several processors the wake-up of the other one costs more than either side, and only
/// the scheduler decides whether it is needed.
inline void useOneProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &one);
    if (::sched_setaffinity(0, sizeof one, &one) != 0) {
        throw std::runtime_error("one processor");
    }
}

} // namespace qv::bench

/// Two contenders that take turns, each run a process of its own, so that both are charged alike.
namespace qv::bench {

struct Cost {
    double wall = 0; ///< seconds
    double processor = 0;
};

inline double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Runs `body`, whose result is the exit status, in a child; throws unless that is 0.
template <typename Body> Cost measure(const Body& body) {
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || ::wait4(child, &status, 0, &usage) != child || status != 0) {
        throw std::runtime_error("a run failed");
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    return {wall.count(), seconds(usage.ru_utime) + seconds(usage.ru_stime)};
}

/// Becomes another program; the status of a shell when there is none.
inline int runProgram(std::vector<std::string> words) {
    std::vector<char*> arguments(words.size() + 1, nullptr);
    std::ranges::transform(words, arguments.begin(), [](std::string& word) { return word.data(); });
    ::execv(arguments[0], arguments.data());
    return 127;
}

inline double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

struct Costs {
    std::vector<double> wall;
    std::vector<double> processor;
    void add(const Cost& cost) {
        wall.push_back(cost.wall);
        processor.push_back(cost.processor);
    }
};

/// A goal of 0 is none.
inline void report(std::string_view what, const std::vector<double>& ours,
                   const std::vector<double>& peer, double goal) {
    const double ratio = median(ours) / median(peer);
    const std::string verdict =
        goal > 0 ? fmt::format("goal {} {}", goal, ratio <= goal ? "met" : "missed") : "";
    fmt::print("  {:<16} {:8.1f} ms   peer {:8.1f} ms   ratio {:.2f}   {}\n", what,
               median(ours) * 1e3, median(peer) * 1e3, ratio, verdict);
}

inline void report(const Costs& ours, const Costs& peer, double goal) {
    report("wall time", ours.wall, peer.wall, goal);
    report("processor time", ours.processor, peer.processor, goal);
}

} // namespace qv::bench
