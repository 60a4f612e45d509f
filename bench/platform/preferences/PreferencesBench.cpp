// Measures the time to store a value against the time to make the same bytes durable. The file
// system of the temporary folder (TMPDIR) is what counts: it has to be a disk.
//
//   bench_preferences [WRITES]

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/preferences/PreferenceFiles.h"
#include "support/Contest.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <sys/stat.h>

namespace {

using namespace qv::bench; // NOLINT(google-build-using-namespace): the contest
using qv::PreferencesDomain;
using qv::Value;

constexpr int kRounds = 7;
constexpr uid_t kNobody = 65534;
constexpr const char* kSmallDomain =
    "<plist version=\"1.0\"><dict><key>name</key><string>an example</string><key>size</key>"
    "<integer>4711</integer><key>list</key><array><string>a</string><true/></array><key>round"
    "</key><integer>-1</integer></dict></plist>\n";

/// A home of root and one of another user, on the same disk.
class Homes {
public:
    Homes() {
        if (::chmod(folder_.path().c_str(), 0755) != 0) {
            throw std::runtime_error("cannot be opened to others");
        }
        for (const char* name : {"root", "other", "bare"}) {
            std::filesystem::create_directories(folder_ / name / ".config");
            folder_.write(std::string(name) + "/.config/com.example.bench.plist", kSmallDomain);
        }
        std::filesystem::create_directories(folder_ / "everybody");
        folder_.write("everybody/com.example.bench.plist", kSmallDomain);
        for (const auto& item : std::filesystem::recursive_directory_iterator(folder_ / "other")) {
            if (::chown(item.path().c_str(), kNobody, kNobody) != 0) {
                throw std::runtime_error("needs root");
            }
        }
    }

    [[nodiscard]] std::string bare() const { return folder_ / "bare/.config"; }

    [[nodiscard]] qv::PreferenceFiles preferences() const {
        const std::string home = folder_ / "root";
        const std::string other = folder_ / "other";
        return qv::PreferenceFiles(
            {.anyUserFolder = folder_ / "everybody",
             .userNamed =
                 [other](const std::string& name) {
                     return qv::UserRecord{kNobody, kNobody, name, other, ""};
                 },
             .userNumbered =
                 [home](uid_t user) { return qv::UserRecord{user, 0, "root", home, ""}; }});
    }

private:
    qv::test::TemporaryDirectory folder_;
};

int store(const Homes& homes, const PreferencesDomain& domain, int writes) {
    auto preferences = homes.preferences();
    for (int i = 0; i < writes; ++i) {
        preferences.setValue("round", Value::integer(i), domain);
        if (const qv::Error error = preferences.synchronize(domain)) {
            fmt::print(stderr, "{}\n", error.localizedDescription());
            return 1;
        }
    }
    return 0;
}

// The same bytes, with nothing but what makes them durable and never seen by halves.
int storeBare(const Homes& homes, const std::string& bytes, int writes) {
    const qv::Descriptor folder(::open(homes.bare().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < writes; ++i) {
        const qv::Descriptor file(
            ::openat(folder.get(), "new", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!file || ::write(file.get(), bytes.data(), bytes.size()) < 0 ||
            ::fsync(file.get()) != 0 ||
            ::renameat(folder.get(), "new", folder.get(), "com.example.bench.plist") != 0 ||
            ::fsync(folder.get()) != 0) {
            return 1;
        }
    }
    return 0;
}

void contest(const Homes& homes, const std::string& what, const std::string& user, int writes,
             double goal) {
    const PreferencesDomain domain{"com.example.bench", user,
                                   std::string(qv::preferences::kAnyHost)};
    if (store(homes, domain, 1) != 0) {
        throw std::runtime_error("cannot be written");
    }
    const auto values = homes.preferences().values(domain).value().value_or(Value());
    const std::string bytes =
        qv::PropertyList::dataWithPropertyList(values, qv::PropertyListFormat::xml).value();
    Costs ours;
    Costs peer;
    for (int round = 0; round < kRounds; ++round) {
        ours.add(measure([&] { return store(homes, domain, writes); }));
        peer.add(measure([&] { return storeBare(homes, bytes, writes); }));
    }
    fmt::print("{} writes of {} bytes, {}\n", writes, bytes.size(), what);
    report("wall time", ours.wall, peer.wall, goal);
    report("processor time", ours.processor, peer.processor, 0);
}

} // namespace

int main(int count, char** arguments) {
    const std::span words(arguments, static_cast<std::size_t>(count));
    int writes = 200;
    if (count > 1) {
        const std::string_view text(words[1]);
        std::from_chars(text.data(), text.data() + text.size(), writes);
    }
    try {
        const Homes homes;
        contest(homes, "one's own", std::string(qv::preferences::kCurrentUser), writes, 1.5);
        contest(homes, "any user's", std::string(qv::preferences::kAnyUser), writes, 1.5);
        contest(homes, "another user's, by a process of his", "other", writes, 0);
    } catch (const std::exception& exception) {
        fmt::print(stderr, "{}\n", exception.what());
        return 1;
    }
    return 0;
}
