// Measures the search for applications among 2,000 desktop entries, ours against GIO where it was
// found: by identifier and by name, the first time in a process and again.
//
// Each measurement is made in a process of its own, by its own clock. GIO's search by name answers
// with more than one application, and only in the process's language.

#include "platform/workspace/applications/ApplicationIndex.h"
#include "support/Contest.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <sys/mman.h>

#ifdef QV_HAVE_GIO
#include <gio/gdesktopappinfo.h>
#endif

namespace {

constexpr int kEntries = 2000;
constexpr int kRounds = 21;
constexpr int kRepetitions = 500;

std::string identifier(int number) { return fmt::format("org.example.App{}", number); }
std::string name(int number) { return fmt::format("Example{} Viewer", number); }

// The size of usual applications' entries.
std::string content(int number) {
    std::string text = fmt::format("[Desktop Entry]\nVersion=1.0\nType=Application\nName={}\n"
                                   "Exec=sh --new-window %U\nTryExec=sh\nIcon=example\n"
                                   "Terminal=false\nCategories=Utility;\n",
                                   name(number));
    for (int locale = 0; locale < 50; ++locale) {
        text += fmt::format("Name[l{0}]=Beispiel {1} in {0}\nComment[l{0}]=Shows the examples of "
                            "number {1}, in the language of {0}\n",
                            locale, number);
    }
    return text + "Actions=new;\n\n[Desktop Action new]\nName=New\nExec=sh --new\n";
}

struct Time {
    double first = 0; ///< seconds
    double again = 0;
};
/// Looks for the application of a number; whether it was found.
using LookUp = std::function<bool(int number)>;

double timeOf(const std::function<bool()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    if (!work()) {
        throw std::runtime_error("an application was not found");
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Measures in a fresh process, which makes its index as part of the first look-up.
Time timeIn(const std::function<LookUp()>& make) {
    void* shared =
        ::mmap(nullptr, sizeof(Time), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        throw std::runtime_error("mmap");
    }
    Time* time = new (shared) Time; // NOLINT(cppcoreguidelines-owning-memory): placed
    qv::bench::measure([&] {
        LookUp lookUp;
        time->first = timeOf([&] {
            lookUp = make();
            return lookUp(kEntries / 2);
        });
        time->again = timeOf([&] {
                          bool isFound = true;
                          for (int number = 0; number < kRepetitions; ++number) {
                              isFound = lookUp(number * 3) && isFound;
                          }
                          return isFound;
                      }) /
                      kRepetitions;
        return EXIT_SUCCESS;
    });
    const Time result = *time;
    ::munmap(shared, sizeof(Time));
    return result;
}

struct Times {
    std::vector<double> first;
    std::vector<double> again;
    void add(const Time& time) {
        first.push_back(time.first);
        again.push_back(time.again);
    }
};

void report(std::string_view what, const std::vector<double>& ours, const std::vector<double>& peer,
            std::string_view goal) {
    fmt::print("  {:<26} {:9.1f} us", what, qv::bench::median(ours) * 1e6);
    if (!peer.empty()) {
        fmt::print("   peer {:9.1f} us   ratio {:.3f}", qv::bench::median(peer) * 1e6,
                   qv::bench::median(ours) / qv::bench::median(peer));
    }
    fmt::print("   {}\n", goal);
}

void contest(std::string_view by, const std::function<LookUp()>& ours,
             const std::function<LookUp()>& peer, std::string_view firstGoal) {
    Times ourTimes;
    Times peerTimes;
    for (int round = 0; round < kRounds; ++round) {
        ourTimes.add(timeIn(ours));
        if (peer) {
            peerTimes.add(timeIn(peer));
        }
    }
    report(fmt::format("{}, first", by), ourTimes.first, peerTimes.first, firstGoal);
    report(fmt::format("{}, again", by), ourTimes.again, peerTimes.again,
           qv::bench::median(ourTimes.again) <= 50e-6 ? "goal 50 us met" : "goal 50 us missed");
}

void run() {
    const qv::test::TemporaryDirectory folder;
    for (int number = 0; number < kEntries; ++number) {
        folder.write(fmt::format("applications/{}.desktop", identifier(number)), content(number));
    }
    // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
    if (::setenv("XDG_DATA_HOME", folder.path().c_str(), 1) != 0 ||
        ::setenv("XDG_DATA_DIRS", "/usr/local/share:/usr/share", 1) != 0) {
        throw std::runtime_error("setenv");
    }
    // NOLINTEND(concurrency-mt-unsafe)
    std::vector<qv::ApplicationFolders> sets = {
        {.bundles = {{"/Applications"}, {"/usr/local/Applications"}, {"/opt", 2}},
         .entries = {folder / "applications", "/usr/local/share/applications",
                     "/usr/share/applications"}}};
    const auto index = [&] { return std::make_shared<qv::ApplicationIndex>(sets); };
    std::function<LookUp()> peerByID;
    std::function<LookUp()> peerByName;
#ifdef QV_HAVE_GIO
    peerByID = [] {
        return [](int number) {
            GDesktopAppInfo* found =
                g_desktop_app_info_new((identifier(number) + ".desktop").c_str());
            const bool isFound = found != nullptr;
            g_clear_object(&found);
            return isFound;
        };
    };
    peerByName = [] {
        return [](int number) {
            gchar*** found = g_desktop_app_info_search(name(number).c_str());
            const bool isFound = found[0] != nullptr;
            for (gchar*** group = found; *group != nullptr; ++group) {
                g_strfreev(*group);
            }
            g_free(static_cast<void*>(found));
            return isFound;
        };
    };
#endif
    fmt::print("{} desktop entries; peer: {}\n", kEntries,
               peerByID ? "GIO" : "none, GIO is missing");
    contest(
        "by identifier",
        [&] {
            return [look = index()](int number) {
                return look->pathForIdentifier(identifier(number)).has_value();
            };
        },
        peerByID, "goal: ratio 1");
    contest(
        "by name",
        [&] {
            return [look = index()](int number) {
                return look->pathForName(name(number)).has_value();
            };
        },
        peerByName, "");
}

} // namespace

int main() {
    try {
        run();
    } catch (const std::exception& failure) {
        fmt::print(stderr, "bench_applications: {}\n", failure.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
