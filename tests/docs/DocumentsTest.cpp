// The examples of the documents, as they stand there. A fenced block says by its info string what
// it is:
// - console: commands and what they print, as the transcripts of tests/tools have it;
// - json, plist: a script without mistakes; a second word names the file that later blocks use;
// - rule: rules, each on a line that is not indented, which hold in the folder "machine", a copy of
//   a machine's files that tests/docs/machines makes, and do not in the folder "other".
// Blocks of a document share a folder. A block that is none of these has a row below, and so has
// one that must not be carried out here.

#include "support/BuildFolder.h"
#include "support/Transcript.h"

#include <gmock/gmock.h>

#include <set>
#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;

struct Block {
    int line = 0;
    std::string info;
    std::string text;
};

/// Blocks of a document, or of all, whose info string and text begin so.
struct Elsewhere {
    std::string_view document;
    std::string_view begin;
    std::string_view runBy; ///< a file that runs them; empty: nobody
    std::string_view why;
};

// The first row that fits counts.
constexpr Elsewhere kElsewhere[] = {
    {"", "cpp\n", "tests/client/install-and-consume", "compiled with the installed headers"},
    {"docs/protocol.md", "hex ", "tests/platform/xpc/ProtocolTest.cpp", "compared byte for byte"},
    {"docs/security.md", "sh", "tests/machine/Machine.cpp", "makes anchors and a client"},
    {"docs/getting-started.md", "sh commands\n", "packaging/debian/test", "needs the packages"},
    {"docs/installation.md", "sh\npackaging/dependencies", "tests/machine/Machine.cpp", "installs"},
    {"docs/lint.md", "\n$ qvcatalog lint", "", "its lines are in tests/tools/transcripts/lint.txt"},
    {"docs/lint.md", "\n/* lint: allow", "", "a comment alone; LintTest has them in scripts"},
    {"docs/lint.md", "", "tests/script/review/lint/LintTest.cpp", "a pair for each check"},
    {"docs/applescript.md", "", "", "the like is in tests/tools/transcripts/script.txt"},
    {"README.md", "sh\n./run", "", "this test is a part of ./test, whose release stage has ./run"},
    {"docs/installation.md", "sh\npackaging/debian", "", "packaging/debian/test uses dpkg"},
    {"docs/preferences.md", "sh\n", "", "a home; the like is in transcripts/preferences.txt"},
    {"docs/disk-images.md", "sh\n", "", "a synopsis; ImagerTest attaches and detaches"},
    {"docs/records.md", "sh\n", "", "other runs each time; RecordTest has the same of a service"},
    {"docs/benchmarks.md", "sh\n", "", "takes an hour"},
    {"docs/fleet.md", "", "packaging/ansible/test", "needs several machines"},
    {"docs/archives.md", "sh\ng++", "", "needs an installed library and a download"},
    {"docs/getting-started.md", "sh\n#!/bin/sh", "", "a script of a package that is not here"},
    {"docs/getting-started.md", "sh\ncmake", "", "builds the whole checkout once more"},
};

std::vector<Block> blocksOf(const std::string& document) {
    std::vector<Block> blocks;
    std::ifstream lines(fs::path(QV_SOURCE) / document);
    int number = 0;
    bool isInside = false;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.starts_with("```")) {
            isInside = !isInside;
            if (isInside) {
                blocks.push_back({number, line.substr(3), ""});
            }
        } else if (isInside) {
            blocks.back().text += line + "\n";
        }
    }
    EXPECT_FALSE(isInside) << document << ": a block has no end";
    return blocks;
}

const Elsewhere* elsewhere(const std::string& document, const Block& block) {
    const auto* row = std::ranges::find_if(kElsewhere, [&](const Elsewhere& each) {
        return (each.document.empty() || each.document == document) &&
               (block.info + "\n" + block.text).starts_with(each.begin);
    });
    return row == std::end(kElsewhere) ? nullptr : row;
}

std::vector<std::string> documents() {
    std::vector<std::string> names = {"README.md"};
    for (const auto& entry : fs::directory_iterator(QV_SOURCE "/docs")) {
        if (entry.path().extension() == ".md") {
            names.push_back("docs/" + entry.path().filename().string());
        }
    }
    return names;
}

class Document : public testing::TestWithParam<std::string> {
protected:
    static void SetUpTestSuite() {
        machines_.emplace();
        const ProgramRun run = runProgram({"/usr/bin/env", "--chdir=" + machines_->path().native(),
                                           QV_SOURCE "/tests/docs/machines"},
                                          "", {"PATH=/usr/bin:/bin"});
        ASSERT_EQ(run.status, 0) << run.errors;
    }
    static void TearDownTestSuite() { machines_.reset(); }
    void SetUp() override {
        fs::create_symlink(built("bin/qvcatalog"), folder_ / "qvcatalog");
        for (const char* machine : {"machine", "other"}) {
            fs::create_symlink(*machines_ / machine, folder_ / machine);
        }
    }

    static ProgramRun qvcatalog(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), built("bin/qvcatalog"));
        return runProgram(arguments);
    }
    void expectScript(const std::string& file) const {
        for (const auto& words : {std::vector<std::string>{"lint", "--strict"}, {"build"}}) {
            std::vector<std::string> arguments = words;
            arguments.push_back(folder_ / file);
            const ProgramRun run = qvcatalog(std::move(arguments));
            EXPECT_EQ(run.status, 0) << run.output << run.errors;
        }
    }
    void expectRules(const std::string& text) const {
        std::istringstream lines(text);
        std::vector<std::string> rules;
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(" ") && !rules.empty()) {
                rules.back() += "\n" + line;
            } else {
                rules.push_back(line);
            }
        }
        EXPECT_FALSE(rules.empty());
        for (const std::string& rule : rules) {
            for (const auto& [machine, answer] : {std::pair("machine", 0), {"other", 1}}) {
                const ProgramRun run = qvcatalog({"rule", "--root", folder_ / machine, rule});
                EXPECT_EQ(run.status, answer) << "on " << machine << ": " << rule << run.errors;
            }
        }
    }
    void expectWorks(const Block& block) const {
        const std::string kind = block.info.substr(0, block.info.find(' '));
        const std::string file = block.info == kind ? "script" : block.info.substr(kind.size() + 1);
        if (kind == "console" && block.text.starts_with("$ ")) {
            std::ofstream(folder_ / "transcript") << block.text;
            followTranscript(folder_ / "transcript", folder_, {});
        } else if (kind == "json" || kind == "plist") {
            std::ofstream(folder_ / file) << block.text;
            expectScript(file);
        } else if (kind == "rule") {
            expectRules(block.text);
        } else {
            ADD_FAILURE() << "nobody knows what to do with \"" << block.info << '"';
        }
    }
    TemporaryDirectory folder_;
    static inline std::optional<TemporaryDirectory> machines_;
};

TEST_P(Document, ShowsWhatWorks) {
    const std::vector<Block> blocks = blocksOf(GetParam());
    if (::geteuid() != 0 && std::ranges::count(blocks, "console", &Block::info) != 0) {
        GTEST_SKIP() << "needs root, for the owners that plans show";
    }
    for (const Block& block : blocks) {
        const testing::ScopedTrace trace(GetParam().c_str(), block.line, block.info);
        if (elsewhere(GetParam(), block) == nullptr) {
            expectWorks(block);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Document, testing::ValuesIn(documents()), [](const auto& each) {
    std::string name = fs::path(each.param).stem();
    std::erase(name, '-');
    return name;
});

// A row that no block needs hides the next one that is not run.
TEST(Documents, NeedEachRow) {
    std::set<const Elsewhere*> needed;
    int all = 0;
    int byOthers = 0;
    int byNobody = 0;
    for (const std::string& document : documents()) {
        for (const Block& block : blocksOf(document)) {
            const Elsewhere* row = elsewhere(document, block);
            needed.insert(row);
            ++all;
            byOthers += static_cast<int>(row != nullptr && !row->runBy.empty());
            if (row != nullptr && row->runBy.empty()) {
                ++byNobody;
                std::cout << "not run: " << document << ":" << block.line << ": " << row->why
                          << "\n";
            }
        }
    }
    for (const Elsewhere& row : kElsewhere) {
        EXPECT_TRUE(needed.contains(&row)) << row.document << ": " << row.begin;
        EXPECT_TRUE(fs::exists(fs::path(QV_SOURCE) / row.runBy)) << row.runBy;
    }
    std::cout << all << " blocks: " << all - byOthers - byNobody << " run here, " << byOthers
              << " by other tests, " << byNobody << " by nobody\n";
}

} // namespace
} // namespace qv::test
