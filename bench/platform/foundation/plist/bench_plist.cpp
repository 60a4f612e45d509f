// Reads a script of 200,000 steps with our reader and with libplist, in turns. Every reading has a
// process of its own, as in the service, which reads a script into fresh memory; processor time
// counts, so that other work on the machine weighs on both alike.

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/plist/XMLReader.h"

#include <fmt/core.h>
#ifdef QV_HAVE_LIBPLIST
#include <plist/plist.h>
#endif

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <malloc.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kSteps = 200'000;
constexpr int kRepetitions = 9;

// A child's report of one reading.
struct Sample {
    double milliseconds = 0; // of processor time
    double growth = 0;       // of the resident set at its peak, in bytes
    bool sound = false;
};

using Reading = std::function<bool(std::string_view)>;

struct Contender {
    std::string_view name;
    Reading reading;
    std::vector<Sample> samples;
};

// Four shapes that installation scripts are made of.
qv::Value script() {
    using qv::Value;
    std::vector<Value> steps;
    for (int i = 0; i < kSteps; ++i) {
        const Value url = Value::string(
            fmt::format("file:///opt/prefix/dir{:03}/file-{:06}.dat", i / 200 % 1000, i));
        std::vector<std::pair<Value, Value>> step{{Value::string("operation"), Value::integer(13)},
                                                  {Value::string("URL"), url},
                                                  {Value::string("arg1"), Value::integer(493)}};
        if (i % 4 == 1) {
            step[0].second = Value::integer(12);
            step[2].second = Value::string("root:wheel");
        }
        if (i % 4 == 2) {
            step[2].second = Value::integer(i % 512);
        } else {
            step.emplace_back(Value::string("arg2"), Value::boolean(false));
        }
        if (i % 4 == 3) {
            step.emplace_back(Value::string("continueOnError"), Value::boolean(true));
        }
        steps.push_back(Value::dictionary(std::move(step)));
    }
    return Value::array(std::move(steps));
}

double processorMilliseconds() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

// A number of kB from this process's status.
double statusKilobytes(std::string_view field) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == field) {
            double value = 0;
            status >> value;
            return value;
        }
    }
    return 0;
}

// Runs something in a child and waits for it.
bool inChild(const std::function<void()>& work) {
    (void)std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = -1;
    return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

// A list in memory that this small process shares with its children.
struct List {
    std::string_view name;
    qv::PropertyListFormat format;
    int fd = -1;
    std::size_t size = 0;
};

bool make(List& list) {
    list.fd = ::memfd_create("list", MFD_CLOEXEC);
    const bool made = inChild([&] {
        const auto data = qv::PropertyList::dataWithPropertyList(script(), list.format);
        for (std::size_t done = 0; data && done < data->size();) {
            const ssize_t wrote = ::write(list.fd, data->data() + done, data->size() - done);
            done = wrote > 0 ? done + static_cast<std::size_t>(wrote) : data->size();
        }
    });
    const off_t end = ::lseek(list.fd, 0, SEEK_END);
    list.size = end > 0 ? static_cast<std::size_t>(end) : 0;
    return made && list.size > 0;
}

Sample measure(const List& list, const Reading& reading) {
    void* shared =
        ::mmap(nullptr, sizeof(Sample), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* sample = new (shared) Sample; // NOLINT(cppcoreguidelines-owning-memory): placed there
    (void)inChild([&] {
        std::string input(list.size, '\0');
        const bool whole =
            ::pread(list.fd, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size());
        std::ofstream("/proc/self/clear_refs") << "5" << std::flush; // VmHWM starts anew
        const double resident = statusKilobytes("VmRSS:");
        const double start = processorMilliseconds();
        const bool sound = reading(input);
        sample->milliseconds = processorMilliseconds() - start;
        sample->growth = (statusKilobytes("VmHWM:") - resident) * 1024;
        sample->sound = whole && sound;
    });
    const Sample result = *sample;
    ::munmap(shared, sizeof(Sample));
    return result;
}

// Readings leave what they read: releasing it is not reading.
bool readOurs(std::string_view data) {
    static auto document = qv::PropertyList::propertyListWithData(data);
    return document.has_value();
}

bool readWithExpatAlone(std::string_view data) {
    static auto root = qv::plist::readAnyXML(data, {});
    return root.has_value();
}

#ifdef QV_HAVE_LIBPLIST
bool readTheirs(std::string_view data) {
    plist_t root = nullptr;
    const auto size = static_cast<std::uint32_t>(data.size());
    const auto read = data.starts_with("bplist") ? plist_from_bin : plist_from_xml;
    read(data.data(), size, &root); // NOLINT(bugprone-suspicious-stringview-data-usage): sized
    return root != nullptr;
}
#endif

double median(std::span<const Sample> samples, double Sample::* field) {
    std::vector<double> values;
    for (const Sample& sample : samples) {
        values.push_back(sample.*field);
    }
    std::ranges::sort(values);
    return values[values.size() / 2];
}

// Every contender in turn, again and again.
bool run(const List& list, std::span<Contender> contenders) {
    fmt::print("{} list of {} steps, {:.1f} MB; medians of {} runs\n", list.name, kSteps,
               static_cast<double>(list.size) / 1e6, kRepetitions);
    for (int i = 0; i < kRepetitions; ++i) {
        for (Contender& contender : contenders) {
            contender.samples.push_back(measure(list, contender.reading));
            if (!contender.samples.back().sound) {
                fmt::print("  {}: reading failed\n", contender.name);
                return false;
            }
        }
    }
    const double first = median(contenders.front().samples, &Sample::milliseconds);
    for (const Contender& contender : contenders) {
        const double time = median(contender.samples, &Sample::milliseconds);
        fmt::print("  {:<22} {:8.1f} ms   ratio {:5.2f}   memory {:5.2f} times the input\n",
                   contender.name, time, time / first,
                   median(contender.samples, &Sample::growth) / static_cast<double>(list.size));
    }
    return true;
}

void goal(std::string_view text, double value, double bound, bool least) {
    const bool met = least ? value >= bound : value <= bound;
    fmt::print("{}: {}: {:.2f}, wanted at {} {}\n", met ? "goal met" : "goal missed", text, value,
               least ? "least" : "most", bound);
}

} // namespace

int main() {
    List binary{"binary", qv::PropertyListFormat::binary};
    List xml{"XML", qv::PropertyListFormat::xml};
    if (!make(binary) || !make(xml)) {
        fmt::print("bench_plist: the lists could not be made\n");
        return 1;
    }
    std::vector<Contender> ofBinary{{"ours", readOurs, {}}};
    std::vector<Contender> ofXML{{"ours", readOurs, {}},
                                 {"ours, expat alone", readWithExpatAlone, {}}};
#ifdef QV_HAVE_LIBPLIST
    ofBinary.push_back({"libplist", readTheirs, {}});
    ofXML.push_back({"libplist", readTheirs, {}});
#else
    fmt::print("bench_plist: libplist is absent (Debian: libplist-dev); no comparison\n");
#endif
    if (!run(binary, ofBinary) || !run(xml, ofXML)) {
        return 1;
    }
    const auto ratio = [](const std::vector<Contender>& all) {
        return median(all.back().samples, &Sample::milliseconds) /
               median(all.front().samples, &Sample::milliseconds);
    };
#ifdef QV_HAVE_LIBPLIST
    goal("binary, times the speed of libplist", ratio(ofBinary), 8, true);
    goal("XML, times the speed of libplist", ratio(ofXML), 2, true);
#endif
    goal("binary, memory growth in sizes of the input",
         median(ofBinary.front().samples, &Sample::growth) / static_cast<double>(binary.size), 2,
         false);
    return 0;
}
