// Measures the recursive change of owner and mode over 100,000 files in 1,000 folders, through
// walkTree and through GNU chown -R and chmod -R, taking turns; with one thread and with two. Goal:
// at most 0.8 of the peer's wall time and of its processor time.

#include "platform/foundation/files/item/ChangeMode.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "support/Contest.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kFolders = 1000;
constexpr int kFilesInFolder = 100;
constexpr int kRounds = 9;
constexpr double kGoal = 0.8;

/// Applies one system call to every item.
class Applying : public qv::TreeVisitor {
public:
    using Call = std::function<int(const qv::TreeEntry&)>;
    explicit Applying(Call call) : call_(std::move(call)) {}
    void visit(const qv::TreeEntry& entry) override {
        if (call_(entry) != 0) {
            ++failures_;
        }
    }
    void failed(const std::string&, const qv::Error&) override { ++failures_; }
    [[nodiscard]] long failures() const { return failures_; }

private:
    Call call_;
    std::atomic<long> failures_ = 0;
};

struct Contest {
    std::string name;
    // Each function gets the number of the round, so that every run has something to change.
    std::function<int(const qv::TreeEntry&, int)> ours;
    std::function<std::vector<std::string>(int)> peer;
    std::function<bool(const struct stat&, int)> isDone;
};

void makeTree(const fs::path& root) {
    for (int folder = 0; folder < kFolders; ++folder) {
        const fs::path path = root / fmt::format("folder-{}", folder);
        fs::create_directory(path);
        for (int file = 0; file < kFilesInFolder; ++file) {
            const std::string name = path / fmt::format("file-{}", file);
            if (::mknod(name.c_str(), S_IFREG | 0644, 0) != 0) {
                throw std::runtime_error("the tree cannot be made");
            }
        }
    }
}

bool isDoneEverywhere(const fs::path& root, const Contest& contest, int round) {
    const auto check = [&](const fs::path& path) {
        struct stat info{};
        return ::lstat(path.c_str(), &info) == 0 && contest.isDone(info, round);
    };
    return check(root) && std::ranges::all_of(fs::recursive_directory_iterator(root),
                                              [&](const auto& item) { return check(item.path()); });
}

int walkAndApply(const fs::path& root, const Applying::Call& call, unsigned threads) {
    Applying visitor(call);
    const std::string parent = root.parent_path();
    visitor.visit({AT_FDCWD, root.c_str(), qv::EntryType::directory, parent});
    const qv::Error error = qv::walkTree(root.string(), qv::RootLink::visitNone, visitor, threads);
    return error || visitor.failures() != 0 ? 1 : 0;
}

int runOne(std::size_t contestant, const Contest& contest, const fs::path& root, int step) {
    if (contestant == 0) {
        return qv::bench::runProgram(contest.peer(step));
    }
    const auto call = [&](const qv::TreeEntry& entry) { return contest.ours(entry, step); };
    return walkAndApply(root, call, static_cast<unsigned>(contestant));
}

void hold(const Contest& contest, const fs::path& root) {
    std::array<qv::bench::Costs, 3> costs;
    int step = 0;
    for (std::size_t round = 0; round < kRounds; ++round) {
        for (std::size_t turn = 0; turn < costs.size(); ++turn, ++step) {
            const std::size_t contestant = (turn + round) % costs.size();
            const qv::bench::Cost cost =
                qv::bench::measure([&] { return runOne(contestant, contest, root, step); });
            if (!isDoneEverywhere(root, contest, step)) {
                throw std::runtime_error(contest.name + ": a run left something undone");
            }
            costs.at(contestant).add(cost);
        }
    }
    fmt::print("{}, {} files in {} folders, median of {} rounds\n", contest.name,
               kFolders * kFilesInFolder, kFolders, kRounds);
    for (const std::size_t threads : {1U, 2U}) {
        fmt::print(" {}\n", threads == 1 ? "one thread" : "two threads");
        qv::bench::report(costs.at(threads), costs[0], kGoal);
    }
}

uid_t owner(int step) { return 20'000 + static_cast<uid_t>(step); }
mode_t mode(int step) { return static_cast<mode_t>(0700 + step % 8); }

void run(const fs::path& root) {
    makeTree(root);
    const Contest owners{
        .name = "change owner (against chown -R)",
        .ours =
            [](const qv::TreeEntry& entry, int step) {
                return ::fchownat(entry.parentFd, entry.name, owner(step), owner(step),
                                  AT_SYMLINK_NOFOLLOW);
            },
        .peer =
            [&](int step) {
                return std::vector<std::string>{"/bin/chown", "-R",
                                                fmt::format("{0}:{0}", owner(step)), root};
            },
        .isDone = [](const struct stat& info,
                     int step) { return info.st_uid == owner(step) && info.st_gid == owner(step); },
    };
    hold(owners, root);

    const Contest modes{
        .name = "change mode (against chmod -R)",
        .ours =
            [](const qv::TreeEntry& entry, int step) {
                return qv::changeModeNotFollowing(entry.parentFd, entry.name, mode(step));
            },
        .peer =
            [&](int step) {
                return std::vector<std::string>{"/bin/chmod", "-R", fmt::format("{:o}", mode(step)),
                                                root};
            },
        .isDone = [](const struct stat& info,
                     int step) { return (info.st_mode & 07777) == mode(step); },
    };
    hold(modes, root);
}

} // namespace

int main() {
    if (::geteuid() != 0) {
        fmt::print("skipped: changing owners needs root\n");
        return 0;
    }
    try {
        const qv::test::TemporaryDirectory folder;
        run(folder.path());
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        return 1;
    }
    return 0;
}
