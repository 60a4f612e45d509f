// Tests conditional blocks as a script's sender sees them: through the running service, by the
// notes that they left in the file system.

#include "service/ServiceTest.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace qv::test {
namespace {

Value control(int code) { return Value::dictionary({{"operation", number(code)}}); }
Value control(int code, const Value& argument) {
    return Value::dictionary({{"operation", number(code)}, {"arg1", argument}});
}

class Blocks : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (!IsSkipped()) {
            keepServing();
        }
    }
    // A step by its word in blocks.txt.
    [[nodiscard]] Value stepOf(const std::string& word) const {
        const std::vector<std::pair<std::string, Value>> steps = {
            {"else", control(18)},
            {"end", control(19)},
            {"go on", control(20, number(1))},
            {"stop", control(20, number(0))},
            {"fail", toolStep("/bin/false", {})},
            {"progress", control(16, number(1))},
            {"if number", control(17, number(5))},
            {"if missing", control(17)},
        };
        const auto known = std::ranges::find(steps, word, &std::pair<std::string, Value>::first);
        if (known != steps.end()) {
            return known->second;
        }
        return word.starts_with("if ") ? control(17, text(word.substr(3)))
                                       : noteStep(folder_ / "notes", word);
    }
    // The notes that a script leaves, one after the other; "failed" when it does not succeed.
    std::string notesOf(const std::string& script) {
        const auto notes = folder_ / "notes";
        std::filesystem::remove(notes);
        std::vector<Value> steps;
        std::istringstream words(script);
        for (std::string word; std::getline(words, word, '|');) {
            steps.push_back(stepOf(word));
        }
        const auto outcome = client_->execute(Value::array(std::move(steps)));
        if (!outcome || !outcome->success) {
            return "failed";
        }
        std::string lines = contentOf(notes);
        lines = lines.empty() ? "nothing" : lines.substr(0, lines.size() - 1);
        std::ranges::replace(lines, '\n', ' ');
        return lines;
    }
};

TEST_F(Blocks, LeaveTheNotesOfTheirCases) {
    std::ifstream cases(QV_BLOCKS);
    int count = 0;
    for (std::string line; std::getline(cases, line);) {
        constexpr std::string_view kArrow = " -> ";
        const std::size_t arrow = line.find(kArrow);
        if (!line.starts_with('#') && arrow != std::string::npos) {
            ++count;
            EXPECT_EQ(notesOf(line.substr(0, arrow)), line.substr(arrow + kArrow.size())) << line;
        }
    }
    EXPECT_GT(count, 20);
    EXPECT_TRUE(service_->waitForLog("Unterminated function: ${f(x"));
}

} // namespace
} // namespace qv::test
