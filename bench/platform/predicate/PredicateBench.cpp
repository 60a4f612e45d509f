// Twenty rules of the kinds that installation scripts use, with our predicates and with GNUstep's,
// in turns: bench_predicate. Or the answers to the lines of a file: bench_predicate answers FILE
// What counts is processor time.

#include "platform/predicate/Predicate.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

using qv::Predicate;
using qv::Value;

constexpr int kTurns = 5;
constexpr int kRuns = 20'000;
constexpr double kGoal = 10;

Value object() {
    return Value::dictionary({
        {"os", Value::string("10.15.7")},
        {"lastStatementExecutionError", Value::integer(0)},
        {"model", Value::string("Laptop5,2")},
        {"path", Value::string("/Applications/Tool.app")},
        {"name", Value::string("Install Tool")},
        {"bytes", Value::integer(4096)},
        {"build", Value::string("19H2026")},
        {"list", Value::array({Value::integer(1), Value::integer(2), Value::integer(3)})},
        {"words", Value::array({Value::string("a"), Value::string("b")})},
        {"map", Value::dictionary({{"k", Value::integer(5)}})},
    });
}

Value variables() {
    return Value::dictionary({{"fnc0", Value::boolean(true)},
                              {"fnc1", Value::string("10.8.2")},
                              {"fnc2", Value::integer(4096)},
                              {"fnc3", Value()}});
}

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Nanoseconds of one run.
struct Times {
    double whole = 0; // parsing and evaluating
    double evaluation = 0;
};

double now() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

Times measure(const std::string& rule) {
    const Value asked = object();
    const Value bound = variables();
    int held = 0;
    const double start = now();
    for (int i = 0; i < kRuns; ++i) {
        held += Predicate::predicateWithFormat(rule).evaluateWithObject(asked, bound) ? 1 : 0;
    }
    const double middle = now();
    const Predicate parsed = Predicate::predicateWithFormat(rule);
    for (int i = 0; i < kRuns; ++i) {
        held += parsed.evaluateWithObject(asked, bound) ? 1 : 0;
    }
    const double end = now();
    if (held != 0 && held != 2 * kRuns) {
        fmt::print("bench_predicate: {} has more than one answer\n", rule);
    }
    return {(middle - start) / kRuns, (end - middle) / kRuns};
}

#ifdef QV_PEER
// The pairs of times of the peer, one for each rule; fewer when the peer fails.
std::vector<Times> measurePeer() {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(
        // NOLINTNEXTLINE(cert-env33-c): the command is a constant of the build
        ::popen("'" QV_PEER "' measure '" QV_RULES "'", "re"), ::pclose);
    std::vector<Times> times;
    std::array<char, 128> line{};
    while (output && std::fgets(line.data(), line.size(), output.get()) != nullptr) {
        char* rest = line.data();
        const double whole = std::strtod(rest, &rest);
        times.push_back({whole, std::strtod(rest, nullptr)});
    }
    return times;
}
#endif

double median(std::vector<Times> samples, double Times::* field) {
    std::ranges::sort(samples, {}, field);
    return samples[samples.size() / 2].*field;
}

int answers(const std::string& path) {
    for (const std::string& line : linesOf(path)) {
        try {
            const bool holds =
                Predicate::predicateWithFormat(line).evaluateWithObject(object(), variables());
            fmt::print("{}\n", holds ? "yes" : "no");
        } catch (const qv::Exception&) {
            fmt::print("raises\n");
        }
    }
    return 0;
}

struct Samples {
    std::vector<Times> ours;
    std::vector<Times> theirs;
};

void print(const std::vector<std::string>& rules, const std::vector<Samples>& samples) {
    Times logarithms;
    Times least{HUGE_VAL, HUGE_VAL};
    fmt::print("{:<24} {:<24} rule\n", "parse and evaluate", "evaluate");
    for (std::size_t i = 0; i < rules.size(); ++i) {
        const double whole = median(samples[i].ours, &Times::whole);
        const double evaluation = median(samples[i].ours, &Times::evaluation);
        if (samples[i].theirs.empty()) {
            fmt::print("{:7.0f} ns {:14} {:7.0f} ns {:13} {}\n", whole, "", evaluation, "",
                       rules[i]);
            continue;
        }
        const Times ratio{median(samples[i].theirs, &Times::whole) / whole,
                          median(samples[i].theirs, &Times::evaluation) / evaluation};
        fmt::print("{:7.0f} ns {:7.1f} times  {:7.0f} ns {:7.1f} times  {}\n", whole, ratio.whole,
                   evaluation, ratio.evaluation, rules[i]);
        logarithms.whole += std::log(ratio.whole);
        logarithms.evaluation += std::log(ratio.evaluation);
        least.whole = std::min(least.whole, ratio.whole);
        least.evaluation = std::min(least.evaluation, ratio.evaluation);
    }
    if (samples.front().theirs.empty()) {
        return;
    }
    const auto goal = [&](std::string_view what, double Times::* field) {
        const double mean = std::exp(logarithms.*field / static_cast<double>(rules.size()));
        fmt::print("{}: {}, times the speed of GNUstep: {:.1f} in the geometric mean, {:.1f} at "
                   "least, wanted at least {}\n",
                   least.*field >= kGoal ? "goal met" : "goal missed", what, mean, least.*field,
                   kGoal);
    };
    goal("parse and evaluate", &Times::whole);
    goal("evaluate", &Times::evaluation);
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string_view(argv[1]) == "answers") {
        return answers(argv[2]);
    }
    const std::vector<std::string> rules = linesOf(QV_RULES);
    std::vector<Samples> samples(rules.size());
#ifndef QV_PEER
    fmt::print("bench_predicate: GNUstep is absent (Debian: libgnustep-base-dev, gobjc); no "
               "comparison\n");
#endif
    for (int turn = 0; turn < kTurns; ++turn) {
        for (std::size_t i = 0; i < rules.size(); ++i) {
            samples[i].ours.push_back(measure(rules[i]));
        }
#ifdef QV_PEER
        const std::vector<Times> theirs = measurePeer();
        if (theirs.size() != rules.size()) {
            fmt::print("bench_predicate: the peer failed\n");
            return 1;
        }
        for (std::size_t i = 0; i < rules.size(); ++i) {
            samples[i].theirs.push_back(theirs[i]);
        }
#endif
    }
    print(rules, samples);
    return 0;
}
