// Conditional blocks as a script's sender sees them: through the running service, by the notes that
// they left in the file system.

#include "service/ServiceTest.h"

#include <algorithm>
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
    // A step in a word: "if RULE", "else", "end", "fail", "go on", "stop", "progress", a rule of
    // another class, or a note.
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
    // Which notes a script leaves, one after the other; "failed" when it does not succeed.
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
        std::ranges::replace(lines, '\n', ' ');
        return lines;
    }
};

TEST_F(Blocks, TakeTheBranchOfTheirRule) {
    for (const auto& [script, notes] : std::initializer_list<std::pair<const char*, const char*>>{
             {"if 1 == 1|P|else|Q|end|R", "P R "},
             {"if 1 == 2|P|else|Q|end|R", "Q R "},
             {"if '10.7' BEGINSWITH '10' AND NOT (2 IN {1, 3})|P|else|Q|end|R", "P R "},
             {"if ${nosuch(fallbackValue=3;x)} == '3'|P|else|Q|end|R", "P R "},
             // A rule that cannot be evaluated does not hold.
             {"if no such key|P|else|Q|end|R", "Q R "},
             {"if nosuchkey == 1|P|else|Q|end|R", "Q R "},
             {"if ${f(x|P|else|Q|end|R", "Q R "},
             {"if missing|P|else|Q|end|R", "Q R "},
             // Inside of a branch that is not taken.
             {"if 1 == 2|if 1 == 1|P|else|Q|end|R|end|S", "S "},
             {"if 1 == 1|if 1 == 2|P|else|Q|end|R|else|T|end|S", "Q R S "},
             {"if 1 == 2|P|else|if 1 == 1|Q|else|R|end|S|end", "Q S "},
             // An else without an if, an end too many, and a block that stays open.
             {"a|else|b|fail|end|c|end|d", "a c d "},
             {"if 1 == 2|a", ""},
             {"fresh", "fresh "},
             // The failure of the very step before.
             {"go on|fail|if lastStatementExecutionError == 1|cure|else|well|end|stop|z",
              "cure z "},
             {"go on|step|if lastStatementExecutionError == 1|cure|else|well|end", "step well "},
             {"go on|fail|progress|if lastStatementExecutionError == 1|cure|else|well|end",
              "well "},
             {"go on|fail|if lastStatementExecutionError == 1|if lastStatementExecutionError == 1|"
              "inner|end|outer|end",
              "outer "},
             // A setting, or a rule, in a branch that is not taken.
             {"if 1 == 2|go on|end|fail|not reached", "failed"},
             {"if 1 == 2|if number|end|end|b", "b "},
             {"a|if number", "failed"},
         }) {
        EXPECT_EQ(notesOf(script), notes) << script;
    }
    EXPECT_TRUE(service_->waitForLog("Unterminated function: ${f(x"));
}

// A step of the storage stays the storage: what is saved afterwards joins it, and a block may stand
// between.
TEST_F(Blocks, LeaveTheStorageAsItIs) {
    const auto file = folder_.write("file", "");
    const auto step = [&](int code, std::string_view url, std::string_view key) {
        return Value::dictionary({{"operation", number(code)},
                                  {url, fileURL(file)},
                                  {code == 10 ? "arg1" : "arg2", text(key)}});
    };
    const Value storage = Value::dictionary(
        {{"given", Value::dictionary({{"uid", number(4711)}, {"gid", number(4712)}})}});
    const auto outcome = client_->execute(Value::array(
        {step(10, "fromURL", "before"), control(22, storage), step(10, "fromURL", "saved"),
         stepOf("if 1 == 2"), control(22, Value::dictionary({})), stepOf("end"),
         stepOf("if 1 == 1"), step(11, "toURL", "given"), stepOf("end")}));
    EXPECT_TRUE(outcome && outcome->success) << outcome->error.description();
    struct stat info{};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 4711U);
}

} // namespace
} // namespace qv::test
