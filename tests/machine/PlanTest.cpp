// Plans of the command against what the record says that the service did.

#include "platform/foundation/plist/PropertyList.h"
#include "script/review/plan/RandomScripts.h"

#include "machine/Machine.h"
#include <map>
#include <regex>
#include <sstream>

namespace qv::test {
namespace {

/// The report on a step: a mark or an outcome, and the error as "(DOMAIN CODE)".
struct ToldStep {
    std::string outcome;
    std::string error;
};
using ToldSteps = std::map<int, ToldStep>;

// Lines of steps; one without a number belongs to the step before.
ToldSteps stepsIn(const std::string& text, const std::regex& line) {
    static const std::regex fault("(\\w+Domain) (-?\\d+)\\)?(, and stops the script)?$");
    ToldSteps steps;
    ToldStep* last = nullptr;
    std::istringstream lines(text);
    for (std::string each; std::getline(lines, each);) {
        std::smatch match;
        if (std::regex_search(each, match, line)) {
            const auto number = match.str(1).find_first_of("0123456789") == 0 ? 1U : 2U;
            last = &steps[std::stoi(match.str(number))];
            last->outcome = match.str(3U - number);
        }
        if (last != nullptr && std::regex_search(each, match, fault)) {
            last->error = match.str(1) + " " + match.str(2);
        }
    }
    return steps;
}

bool comesTrueAs(const std::string& mark, const std::string& outcome) {
    if (mark == "~") {
        return outcome == "changed" || outcome == "done";
    }
    if (mark == " ") { // also of a mark of blocks that is counted only
        return outcome == "unchanged" || outcome == "done" || outcome == "skipped";
    }
    return mark == "!" ? outcome == "failed" : outcome.empty() || outcome == "skipped";
}

TEST(Plan, ComesTrueThroughTheService) {
    constexpr unsigned kScripts = 25;
    const std::regex planned("^([~ !?*-]) +(\\d+) ");
    const std::regex recorded("^ +(\\d+) (\\w+) ");
    std::vector<ToldSteps> plans;
    for (unsigned number = 0; number < kScripts; ++number) {
        const std::string root = "/srv/plan/" + std::to_string(number);
        makeTree(root);
        const auto script = PropertyList::dataWithPropertyList(
            RandomScripts(root, 1000 + number).next(), PropertyListFormat::binary);
        std::ofstream(root + ".script") << script.value();
        plans.push_back(stepsIn(shell("qvcatalog plan " + root + ".script").output, planned));
        session(root + ".script");
    }
    EXPECT_TRUE(comesTrue([] { return unitProperty("ActiveState") == "inactive"; }));
    std::istringstream runs(
        shell("journalctl --sync; qvcatalog log --last 25 | awk '{print $3}'").output);
    int lines = 0;
    int exact = 0;
    for (const ToldSteps& plan : plans) {
        std::string run;
        std::getline(runs, run);
        const std::string log = shell("qvcatalog log " + run).output;
        ToldSteps done = stepsIn(log, recorded);
        EXPECT_FALSE(plan.empty());
        for (const auto& [number, step] : plan) {
            ++lines;
            if (step.outcome == "?" || step.outcome == "*") {
                continue;
            }
            ++exact;
            EXPECT_TRUE(comesTrueAs(step.outcome, done[number].outcome) &&
                        (step.error.empty() || step.error == done[number].error))
                << "step " << number << " is planned as " << step.outcome << " " << step.error
                << "\n"
                << log;
        }
    }
    EXPECT_GE(exact * 10, lines * 7);
    printFigure("steps of which a plan is sure", 100.0 * exact / lines, "%");
}

} // namespace
} // namespace qv::test
