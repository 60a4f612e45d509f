// Measures copying, removing and moving through the file manager, against cp -a, rm -rf and mv,
// taking turns. Goals: a tree of 70,000 files copied in 0.9 of the peer's wall and processor time,
// 100,000 files removed in 0.9, one large file and one large sparse file copied in 1.0, a tree
// moved to another file system in 1.0 of the wall time.
//
// Works on a fresh ext4 of its own, and nothing is removed there in the middle of a contest: ext4
// takes long to find a free inode while many were freed in the last minutes. Needs root, and about
// 20 GiB in the temporary folder.
//
// bench_file_manager [GIB]: how large the large file is (1 GiB).

#include "platform/foundation/files/manager/FileManager.h"
#include "support/Contest.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sys/mount.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace qv;

namespace {

constexpr int kRounds = 5;

std::optional<URL> urlOf(const fs::path& path) { return URL::fileURLWithPath(path.native()); }

// Sizes as source code has them: a median of 4 KiB, few large ones.
void makeSourceTree(const fs::path& root, int folders, int filesInFolder) {
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same tree each time
    std::lognormal_distribution<double> sizes(std::log(4096), 1.2);
    const std::string text(1 << 20, 'x');
    for (int folder = 0; folder < folders; ++folder) {
        const fs::path path =
            root / fmt::format("part-{}", folder % 40) / fmt::format("library-{}", folder);
        fs::create_directories(path);
        for (int file = 0; file < filesInFolder; ++file) {
            const auto size = std::min(static_cast<std::size_t>(sizes(random)), text.size());
            std::ofstream(path / fmt::format("source-{}.c", file))
                .write(text.data(), static_cast<std::streamsize>(size));
        }
    }
}

struct Contest {
    std::string name;
    double wallGoal;
    double processorGoal;
    std::function<int(int)> ours; // the number of the run
    std::function<int(int)> peer;
    std::function<void(int)> prepare = [](int) {};
    std::function<void(int)> cleanUp = [](int) {};
};

constexpr int kRuns = 2 * kRounds;

void hold(const Contest& contest) {
    bench::Costs ours;
    bench::Costs peer;
    for (int run = 0; run < kRuns; ++run) {
        const bool isOurs = (run + run / 2) % 2 == 0; // each goes first in half of the rounds
        contest.prepare(run);
        ::sync();
        (isOurs ? ours : peer).add(bench::measure([&] {
            return isOurs ? contest.ours(run) : contest.peer(run);
        }));
        contest.cleanUp(run);
    }
    fmt::print("{}, median of {} rounds\n", contest.name, kRounds);
    bench::report("wall time", ours.wall, peer.wall, contest.wallGoal);
    bench::report("processor time", ours.processor, peer.processor, contest.processorGoal);
    static_cast<void>(std::fflush(stdout));
}

fs::path numbered(const fs::path& path, int run) { return path.native() + std::to_string(run); }

Contest copying(const std::string& name, const fs::path& from, const fs::path& to, double goal) {
    return {
        .name = name,
        .wallGoal = goal,
        .processorGoal = goal,
        .ours =
            [=](int run) {
                return FileManager::copyItemAtURL(urlOf(from), urlOf(numbered(to, run))) ? 1 : 0;
            },
        .peer =
            [=](int run) { return bench::runProgram({"/bin/cp", "-a", from, numbered(to, run)}); }};
}

void copyLarge(const std::string& name, const fs::path& from, const fs::path& to) {
    Contest contest = copying(name, from, to, 1.0);
    contest.cleanUp = [=](int run) { fs::remove(numbered(to, run)); };
    hold(contest);
}

void removing(const fs::path& root) {
    for (int run = 0; run < kRuns; ++run) {
        for (int folder = 0; folder < 1000; ++folder) {
            const fs::path path = numbered(root, run) / std::to_string(folder);
            fs::create_directories(path);
            for (int file = 0; file < 100; ++file) {
                std::ofstream(path / std::to_string(file)) << "x";
            }
        }
    }
    hold({.name = "remove 100,000 files (rm -rf)",
          .wallGoal = 0.9,
          .processorGoal = 0, // both sides make one unlinkat for each file
          .ours =
              [=](int run) {
                  return FileManager::removeItemAtURL(urlOf(numbered(root, run))) ? 1 : 0;
              },
          .peer =
              [=](int run) { return bench::runProgram({"/bin/rm", "-rf", numbered(root, run)}); }});
}

Contest moving(const std::string& name, const fs::path& tree, const fs::path& from,
               const fs::path& to) {
    return {.name = name,
            .wallGoal = 1.0,
            .processorGoal = 1.0,
            .ours =
                [=](int run) {
                    return FileManager::moveItemAtURL(urlOf(numbered(from, run)),
                                                      urlOf(numbered(to, run)))
                               ? 1
                               : 0;
                },
            .peer =
                [=](int run) {
                    return bench::runProgram({"/bin/mv", numbered(from, run), numbered(to, run)});
                },
            .prepare =
                [=](int run) {
                    if (FileManager::copyItemAtURL(urlOf(tree), urlOf(numbered(from, run)))) {
                        throw std::runtime_error("the tree cannot be copied");
                    }
                }};
}

void run(const fs::path& folder, const fs::path& memory, std::uintmax_t gibibytes) {
    const fs::path tree = folder / "tree";
    makeSourceTree(tree, 4375, 16);
    hold(copying("copy a source tree of 70,000 files (cp -a)", tree, folder / "copy", 0.9));
    hold(moving("move it to another file system, synced (mv, which does not sync)", tree,
                memory / "tree", folder / "moved"));
    Contest toMemory = moving("move it to a tmpfs (mv)", tree, folder / "from", memory / "to");
    toMemory.cleanUp = [=](int run) { fs::remove_all(numbered(memory / "to", run)); };
    hold(toMemory);
    removing(folder / "many");
    const fs::path large = folder / "large";
    {
        std::ofstream file(large);
        const std::string text(1 << 20, 'x');
        for (std::uintmax_t i = 0; i < gibibytes * 1024; ++i) {
            file << text;
        }
    }
    copyLarge(fmt::format("copy a file of {} GiB (cp -a)", gibibytes), large, folder / "large-");
    fs::resize_file(large, 0);
    fs::resize_file(large, gibibytes << 30U);
    {
        std::fstream file(large, std::ios::in | std::ios::out);
        for (std::streamoff at = 0; at < static_cast<std::streamoff>(gibibytes << 30U);
             at += 1 << 22) {
            file.seekp(at).write("x", 1);
        }
    }
    copyLarge(fmt::format("copy a sparse file of {} GiB (cp -a)", gibibytes), large,
              folder / "sparse-");
}

/// The file systems of our own, which live as long as this object.
class FileSystems {
public:
    explicit FileSystems(const fs::path& folder) : folder_(folder) {
        fs::create_directory(disk());
        fs::create_directory(memory());
        const fs::path image = folder / "image";
        std::ofstream(image).close();
        fs::resize_file(image, std::uintmax_t{24} << 30U);
        must({"/sbin/mkfs.ext4", "-q", "-i", "8192", "-E", "lazy_itable_init=0,lazy_journal_init=0",
              image});
        must({"/bin/mount", "-o", "loop", image, disk()});
        must({"/bin/mount", "-t", "tmpfs", "-o", "size=3g", "tmpfs", memory()});
    }
    FileSystems(const FileSystems&) = delete;
    FileSystems& operator=(const FileSystems&) = delete;
    FileSystems(FileSystems&&) = delete;
    FileSystems& operator=(FileSystems&&) = delete;
    ~FileSystems() {
        ::umount2(disk().c_str(), MNT_DETACH);
        ::umount2(memory().c_str(), MNT_DETACH);
    }
    [[nodiscard]] fs::path disk() const { return folder_ / "disk"; }
    [[nodiscard]] fs::path memory() const { return folder_ / "memory"; }

private:
    static void must(const std::vector<std::string>& words) {
        bench::measure([&] { return bench::runProgram(words); });
    }
    fs::path folder_;
};

} // namespace

int main(int count, char** arguments) {
    if (::geteuid() != 0) {
        fmt::print("skipped: mounting needs root\n");
        return 0;
    }
    try {
        const test::TemporaryDirectory folder;
        const FileSystems systems(folder.path());
        run(systems.disk(), systems.memory(),
            count > 1 ? std::strtoull(arguments[1], nullptr, 10) : 1);
    } catch (const std::exception& problem) {
        fmt::print(stderr, "{}\n", problem.what());
        return 1;
    }
    return 0;
}
