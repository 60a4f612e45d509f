#include "script/review/lint/Lint.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/URL.h"
#include "script/QVCatalogScript.h"
#include "script/review/QVCatalogScriptReview.h"
#include "script/step/OperationTable.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <ctime>
#include <fstream>
#include <map>
#include <sstream>

namespace qv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Value scriptOf(const std::string& text) {
    const auto list = PropertyList::propertyListWithData(text);
    EXPECT_TRUE(list) << text << '\n' << list.error().localizedDescription();
    return list ? list->root : Value();
}

std::vector<std::string> namesIn(const Value& steps, const LintOptions& options) {
    std::vector<std::string> names;
    for (const Finding& finding : lint(steps, options)) {
        names.emplace_back(finding.rule);
    }
    return names;
}

std::string fileText(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// The text between two lines of three backquotes, from a place on, which moves behind it.
std::string nextBlock(const std::string& text, std::size_t& place) {
    const std::size_t begin = text.find("\n```\n", place) + 5;
    const std::size_t end = text.find("\n```\n", begin - 1);
    place = end + 4;
    return text.substr(begin, end - begin);
}

TEST(LintGuide, DescribesEachCheckWithExamples) {
    const std::string guide = fileText(QV_LINT_GUIDE);
    std::map<std::string, std::string, std::less<>> sections;
    for (std::size_t at = guide.find("\n### "); at != std::string::npos;) {
        const std::size_t next = guide.find("\n### ", at + 1);
        const std::string section = guide.substr(at + 5, next - at - 5);
        sections.emplace(section.substr(0, section.find('\n')), section);
        at = next;
    }
    EXPECT_EQ(sections.size(), lintRules().size());
    for (const LintRule& rule : lintRules()) {
        const std::string& section = sections[std::string(rule.name)];
        EXPECT_THAT(section, testing::HasSubstr(fmt::format(
                                 "\n*{}*: {}.", severityName(rule.severity), rule.summary)));
        std::size_t place = 0;
        const std::string bad = nextBlock(section, place);
        const std::string good = nextBlock(section, place);
        EXPECT_THAT(namesIn(scriptOf(bad), {.asksMachine = true}), ElementsAre(rule.name)) << bad;
        EXPECT_THAT(namesIn(scriptOf(good), {.asksMachine = true}), IsEmpty()) << good;
    }
}

Value usualValue(FieldKind kind) {
    switch (kind) {
    case FieldKind::item:
        return Value::string("file:///opt/app");
    case FieldKind::toolPath:
        return Value::string("/bin/true");
    case FieldKind::rule:
        return Value::string("version.os == '12.0.0'");
    case FieldKind::arguments:
        return Value::array({Value::string("--all")});
    case FieldKind::mode:
        return Value::integer(0755);
    case FieldKind::user:
        return Value::string("kCFPreferencesAnyUser");
    case FieldKind::storage:
        return Value::dictionary({{"system", Value::dictionary({})}});
    case FieldKind::flag:
        return Value::boolean(true);
    case FieldKind::errorBehaviour:
    case FieldKind::exitCodes:
        return Value::integer(0);
    case FieldKind::processID:
    case FieldKind::userID:
    case FieldKind::groupID:
    case FieldKind::adminFlag:
    case FieldKind::progressField:
        return Value::integer(7);
    default:
        return Value::string("system");
    }
}

Value usualStep(const Operation& operation, bool withOptional) {
    std::vector<std::pair<Value, Value>> pairs = {
        {Value::string("operation"), Value::integer(static_cast<int>(operation.code))}};
    for (const Field& field : operation.fields) {
        const bool isIdle = operation.code == OperationCode::moveItemFromURL &&
                            field.name == "atomic"; // a finding reports this one
        if (!isIdle && (withOptional || field.kind != FieldKind::flag)) {
            const bool isSecond = field.key == StepKey::toURL;
            pairs.emplace_back(Value::string(stepKeyName(field.key)),
                               isSecond ? Value::string("file:///opt/other")
                                        : usualValue(field.kind));
        }
    }
    return Value::dictionary(std::move(pairs));
}

TEST(Lint, FindsNothingInUsualSteps) {
    const auto usual = [](OperationCode code) { return usualStep(operationRow(code), true); };
    const std::vector<Value> settings = {usual(OperationCode::setExecuteWithAdminRights),
                                         usual(OperationCode::setErrorHandlingBehaviour),
                                         usual(OperationCode::setKeyValueStorage)};
    const Value begin = usual(OperationCode::beginIfBlock);
    const Value middle = usual(OperationCode::beginElseBlock);
    const Value end = usual(OperationCode::endIfBlock);
    int count = 0;
    for (const Operation& operation : allOperations()) {
        const bool isMark = operation.code >= OperationCode::beginIfBlock &&
                            operation.code <= OperationCode::endIfBlock;
        if (isMark || operation.code == OperationCode::updateProgressField ||
            operation.code == OperationCode::setExecuteWithAdminRights) {
            continue;
        }
        for (const bool withOptional : {false, true}) {
            const Value step = usualStep(operation, withOptional);
            for (const std::vector<Value>& rest : {std::vector{step},
                                                   {begin, step, end},
                                                   {begin, step, middle, step, end},
                                                   {begin, middle, step, end},
                                                   {begin, begin, step, end, middle, step, end}}) {
                std::vector<Value> steps = settings;
                steps.insert(steps.end(), rest.begin(), rest.end());
                EXPECT_THAT(namesIn(Value::array(steps), {.isRecorded = true}), IsEmpty())
                    << operation.name;
                ++count;
            }
        }
    }
    std::ifstream lines(QV_LINT_CLEAN);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('{')) {
            EXPECT_THAT(namesIn(scriptOf("(" + line + ")"), {}), IsEmpty()) << line;
            ++count;
        }
    }
    EXPECT_GT(count, 200);
}

TEST(Lint, FindsWhatExamplesShowOnPurpose) {
    // A template holds words for which `./run` puts values.
    const auto expectIn = [](const std::string& example, const auto& matcher) {
        EXPECT_THAT(namesIn(scriptOf(fileText(QV_EXAMPLES "/" + example + ".plist")), {}), matcher)
            << example;
    };
    for (const char* clean : {"application", "by-machine", "fails-half-way", "greeter"}) {
        expectIn(clean, IsEmpty());
    }
    for (const char* hello : {"install-hello", "install-hello-oldstyle"}) {
        expectIn(hello, ElementsAre("overwritten-change"));
    }
    expectIn("greeter-quit", ElementsAre("not-a-number"));
    expectIn("conditional", ElementsAre("empty-block", "rule-syntax", "constant-rule"));
}

TEST(Lint, PointsAtPlaces) {
    const std::string rule = "${version(os)} == '1' AND ${filesystem(do=exists;absPath=/a)} = = 1";
    const std::vector<Finding> findings = lint(scriptOf("({operation=17;arg1=\"" + rule +
                                                        "\";},{operation=8;arg1=/bin/ls;"
                                                        "arg2=(a,{});},{operation=19;})"));
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].offset, rule.rfind('='));
    EXPECT_EQ(findings[1].step, 1U);
    EXPECT_EQ(findings[1].key, "arg2");
    EXPECT_EQ(findings[1].element, 1U);
}

double processorSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Items at many paths, which go and come, blocks in blocks, and rules that differ.
Value longScript(int count) {
    std::string text;
    const int deep = 1000;
    for (int i = 0; i < deep; ++i) {
        text += "{operation=17;arg1=\"sysctl.integer.hw.ncpu > 1\";},";
    }
    for (int i = 0; i < count; ++i) {
        text += fmt::format("{{operation=13;URL=\"file:///opt/a/{0}/x\";arg1=493;}},"
                            "{{operation=2;URL=\"file:///opt/b/{0}\";}},"
                            "{{operation=5;fromURL=\"file:///opt/a\";toURL=\"file:///c/{0}\";}},"
                            "{{operation=17;arg1=\"sysctl.integer.hw.ncpu > {0}\";}},"
                            "{{operation=12;URL=\"file:///opt/a\";arg1=0;arg2=0;arg3=YES;}},"
                            "{{operation=19;}},",
                            i);
    }
    for (int i = 0; i < deep; ++i) {
        text += "{operation=19;},";
    }
    return scriptOf("(" + text + ")");
}

TEST(Lint, TakesTimeLinearInTheScript) {
    const auto secondsOf = [](int count) {
        const Value script = longScript(count);
        const double begin = processorSeconds();
        EXPECT_THAT(namesIn(script, {}), IsEmpty());
        return processorSeconds() - begin;
    };
    constexpr int kFew = 400;
    constexpr int kTimes = 8;
    static_cast<void>(secondsOf(kFew)); // memory is there from now on
    EXPECT_LT(secondsOf(kTimes * kFew), 3 * kTimes * secondsOf(kFew) + 0.05);
}

TEST(ScriptReview, RefusesTheFirstError) {
    QVCatalogScript script;
    script.beginRecording();
    const auto item = URL::fileURLWithPath("/opt/app");
    EXPECT_FALSE(script.waitForQuitOfApplicationWithPID(4711));
    EXPECT_FALSE(script.changeModeOfItem(item, 0644, true)); // a warning
    EXPECT_FALSE(script.changeModeOfItem(item, 755, false));
    const Value steps = *script.endRecording();
    const Error error = QVCatalogScriptReview::errorOfReview(steps);
    EXPECT_EQ(error.domain(), kScriptReviewErrorDomain);
    EXPECT_EQ(*error.userInfo().find(kScriptReviewStepIndexKey), Value::integer(5));
    EXPECT_EQ(*error.userInfo().find(kScriptReviewRuleKey), Value::string("decimal-mode"));
    EXPECT_FALSE(QVCatalogScriptReview::errorOfReview(
        Value::array({steps.asArray().begin(), steps.asArray().begin() + 5})));
}

} // namespace
} // namespace qv
