// Plans of many scripts, each held against a run of its script by the engine.

#include "platform/foundation/values/Exception.h"
#include "platform/preferences/PreferenceFiles.h"
#include "platform/workspace/trash/TrashService.h"
#include "rules/functions/RuleServices.h"
#include "script/ScriptEngine.h"
#include "script/review/plan/Plan.h"
#include "script/review/plan/RandomScripts.h"
#include "script/step/OperationTable.h"
#include "script/step/StepText.h"

#include <fmt/ranges.h>

#include <ftw.h>
#include <map>
#include <set>
#include <sstream>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

/// The outcome of a step.
struct Done {
    std::string outcome;       ///< "done", "skipped", "not reached", "raises", or the error
    bool isCarriedOut = false; ///< the steps behind it are carried out
    std::string tree;
};

std::string errorName(const Error& error) {
    return fmt::format("{} {}", error.domain(), error.code());
}

std::string lineOf(const std::string& path, const struct stat& info) {
    std::string text = fmt::format("{} {:o} {}:{}", path, info.st_mode, info.st_uid, info.st_gid);
    if (S_ISLNK(info.st_mode)) {
        text += " " + fs::read_symlink(path).native();
    } else if (S_ISREG(info.st_mode)) {
        // The note of the trash holds the time.
        text += " " + (path.ends_with(".trashinfo") ? "" : contentOf(path));
    }
    return text;
}

std::string lineOf(const LeftItem& item, const std::string& content) {
    static constexpr mode_t kTypes[] = {S_IFREG, S_IFDIR, S_IFLNK, S_IFIFO, S_IFIFO};
    const mode_t type = kTypes[static_cast<int>(item.state.type)];
    std::string text = fmt::format("{} {:o} {}:{}", item.path, type | item.state.mode,
                                   item.state.user, item.state.group);
    if (type == S_IFLNK) {
        text += " " + item.state.target;
    } else if (type == S_IFREG) {
        text += " " + content;
    }
    return text;
}

std::map<std::string, std::string> treeOf(const fs::path& root) {
    std::map<std::string, std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat info{};
        const std::string path = entry.path().native();
        if (::lstat(path.c_str(), &info) == 0) {
            lines[path] = lineOf(path, info);
        }
    }
    return lines;
}

// The facts of a tree that a step changes, but for dates; no content is read.
std::string glanceAt(const std::string& root) {
    static std::set<std::string> lines; // nftw hands nothing through
    lines.clear();
    const auto note = [](const char* path, const struct stat* info, int /*kind*/, FTW* /*place*/) {
        const bool isFile = S_ISREG(info->st_mode);
        lines.insert(fmt::format("{} {:o} {}:{} {}\n", path, info->st_mode, info->st_uid,
                                 info->st_gid, isFile ? info->st_ino : 0));
        return 0;
    };
    constexpr int kDescriptors = 16;
    EXPECT_EQ(::nftw(root.c_str(), note, kDescriptors, FTW_PHYS), 0);
    return fmt::format("{}", fmt::join(lines, ""));
}

std::string joined(const std::map<std::string, std::string>& lines) {
    std::string text;
    for (const auto& [path, line] : lines) {
        text += line + "\n";
    }
    return text;
}

PreferenceEnvironment environmentIn(const std::string& root) {
    PreferenceEnvironment environment;
    environment.anyUserFolder = root + "/prefs";
    return environment;
}

std::vector<Done> run(const Value& steps, const std::string& root) {
    QVCatalogScript script;
    script.setIsPriviledged(true);
    ScriptEngine& engine = ScriptEngine::of(script);
    engine.services.trash = std::make_shared<FreedesktopTrash>(root + "/home");
    engine.services.preferences = std::make_shared<PreferenceFiles>(environmentIn(root));
    std::vector<Done> done;
    StepReader reader;
    bool hasStopped = false;
    for (const Value& step : steps.asArray()) {
        Done line{"not reached", false, ""};
        if (!hasStopped) {
            const bool isSkipped = !engine.executeScript;
            try {
                StepFields fields = reader.read(step);
                const Operation* operation = operationForCode(fields.operation());
                const Error error = engine.replayStep(operation, fields);
                engine.executeRecordingLastStatementError = error;
                const bool isMarker =
                    operation != nullptr && (operation->code == OperationCode::beginElseBlock ||
                                             operation->code == OperationCode::endIfBlock);
                line.outcome =
                    operation == nullptr || (isSkipped && !isMarker) ? "skipped" : "done";
                line.outcome = error ? errorName(error) : line.outcome;
                hasStopped = error && script.errorHandlingBehaviour() == 0;
            } catch (const Exception&) {
                line.outcome = "raises";
                hasStopped = true;
            }
            line.isCarriedOut = engine.executeScript;
        }
        line.tree = glanceAt(root);
        done.push_back(std::move(line));
    }
    return done;
}

std::string foreseen(const PlannedStep& line) {
    switch (line.outcome) {
    case PlannedOutcome::fails:
        return errorName(line.error);
    case PlannedOutcome::raises:
        return "raises";
    case PlannedOutcome::skipped:
        return "skipped";
    case PlannedOutcome::notReached:
        return "not reached";
    default:
        return "done";
    }
}

class Comparison : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, for owners";
        }
        mask_ = ::umask(022);
    }
    void TearDown() override { ::umask(mask_); }

    // Compares one script; counts its lines and those that are exact.
    void compare(const Value& steps, unsigned number) {
        const std::string root = folder_.path() / std::to_string(number);
        const auto before = treeOf(root);
        PlanOptions options;
        options.trashOwnerHome = root + "/home";
        options.services = RuleServices::ofThisProcess();
        options.preferences = environmentIn(root);
        options.asRoot = true;
        const Plan plan = planOf(steps, options);
        const std::vector<LeftItem> left = plan.itemsFrom(root);
        std::map<std::string, std::string> contents;
        for (const auto& [path, line] : before) {
            contents[path] = fs::is_regular_file(fs::symlink_status(path)) ? contentOf(path) : "";
        }
        std::string tree = glanceAt(root);
        const std::vector<Done> done = run(steps, root);
        ASSERT_EQ(plan.steps.size(), done.size());
        bool agrees = true;
        for (std::size_t i = 0; i < done.size(); ++i) {
            const PlannedStep& line = plan.steps[i];
            ++lines_;
            if (line.certainty == Certainty::exact) {
                ++exact_;
                const bool isSame = done[i].tree == tree;
                const bool saysSame =
                    line.outcome != PlannedOutcome::changes && line.effectCount == 0;
                const bool saysDates =
                    line.effectCount == 1 && line.effects.front().note == "dates";
                agrees = agrees && foreseen(line) == done[i].outcome &&
                         (saysDates || saysSame == isSame) &&
                         (!line.holds || *line.holds == done[i].isCarriedOut);
            }
            if (!agrees) {
                ADD_FAILURE() << "script " << number << ", step " << i << ": "
                              << stepText(steps.asArray()[i]) << "\nforeseen " << foreseen(line)
                              << ", " << line.effectCount << " effects, was " << done[i].outcome
                              << "\n"
                              << describe(plan, steps, i) << "\n"
                              << tree << "\n"
                              << done[i].tree;
                return;
            }
            tree = done[i].tree;
        }
        compareTrees(left, treeOf(root), contents, number);
    }

    static std::string describe(const Plan& plan, const Value& steps, std::size_t last) {
        std::ostringstream text;
        for (std::size_t i = 0; i <= last; ++i) {
            text << i << " " << stepText(steps.asArray()[i]) << ": " << foreseen(plan.steps[i])
                 << " certainty " << static_cast<int>(plan.steps[i].certainty) << " "
                 << plan.steps[i].reason << "\n";
            for (const PlannedEffect& effect : plan.steps[i].effects) {
                text << "     " << effect.path << " " << effect.note << "\n";
            }
        }
        return text.str();
    }

    void compareTrees(const std::vector<LeftItem>& left, std::map<std::string, std::string> after,
                      const std::map<std::string, std::string>& contents, unsigned number) {
        std::map<std::string, std::string> expected;
        std::vector<std::string> unsure;
        for (const LeftItem& item : left) {
            const auto content = contents.find(item.contentFrom);
            if (item.state.type == ItemState::Type::unknown) {
                unsure.push_back(item.path);
            }
            expected[item.path] = lineOf(item, content == contents.end() ? "" : content->second);
        }
        const auto isUnsure = [&](const std::string& path) {
            return std::ranges::any_of(unsure, [&](const std::string& each) {
                return (path + "/").starts_with(each + "/");
            });
        };
        after.insert({left.front().path, expected[left.front().path]}); // the root, not listed
        for (std::map<std::string, std::string>* lines : {&expected, &after}) {
            items_ += lines->size();
            std::erase_if(*lines, [&](const auto& line) { return isUnsure(line.first); });
            sureItems_ += lines->size();
        }
        EXPECT_EQ(joined(expected), joined(after)) << "script " << number;
    }

    TemporaryDirectory folder_{fs::exists("/dev/shm") ? "/dev/shm" : "/tmp"};
    std::size_t lines_ = 0;
    std::size_t exact_ = 0;
    std::size_t items_ = 0;
    std::size_t sureItems_ = 0;
    mode_t mask_ = 0;
};

TEST_F(Comparison, ExactLinesComeTrue) {
    constexpr unsigned kScripts = 500;
    for (unsigned number = 0; number < kScripts && !HasFailure(); ++number) {
        const std::string root = folder_.path() / std::to_string(number);
        makeTree(root);
        compare(RandomScripts(root, number).next(), number);
        fs::remove_all(root);
    }
    EXPECT_GE(exact_ * 10, lines_ * 7);
    EXPECT_GE(sureItems_ * 10, items_ * 7);
    RecordProperty("exact", std::to_string(exact_) + " of " + std::to_string(lines_));
}

} // namespace
} // namespace qv::test
