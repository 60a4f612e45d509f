#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "script/review/plan/Plan.h"
#include "script/step/StepText.h"
#include "tools/machine/Machine.h"
#include "tools/scripts/FindingReport.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/scripts/ScriptSource.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <unistd.h>

namespace qv::tools {

namespace {

using PlanPairs = std::vector<std::pair<Value, Value>>;
using Style = Terminal::Style;

constexpr std::size_t kFewEffects = 10; // of one step, unless all are asked for

struct PlanCounts {
    std::size_t changes = 0;
    std::size_t unchanged = 0;
    std::size_t skipped = 0;
    std::size_t failing = 0;
    std::size_t depends = 0;
    std::size_t opaque = 0;
};

std::string_view certaintyName(Certainty certainty) {
    switch (certainty) {
    case Certainty::exact:
        return "exact";
    case Certainty::depends:
        return "depends";
    case Certainty::opaque:
        break;
    }
    return "opaque";
}

std::string_view outcomeName(const PlannedStep& line) {
    switch (line.outcome) {
    case PlannedOutcome::changes:
        return "changes";
    case PlannedOutcome::unchanged:
        return "unchanged";
    case PlannedOutcome::skipped:
        return "skipped";
    case PlannedOutcome::fails:
        return "fails";
    case PlannedOutcome::raises:
        return "raises";
    case PlannedOutcome::runs:
        return "runs";
    case PlannedOutcome::notReached:
        break;
    }
    return "not reached";
}

PlanCounts countsOf(const Plan& plan) {
    PlanCounts counts;
    for (const PlannedStep& line : plan.steps) {
        using enum PlannedOutcome;
        if (line.certainty != Certainty::exact) {
            ++(line.certainty == Certainty::depends ? counts.depends : counts.opaque);
        } else if (line.outcome == changes) {
            ++counts.changes;
        } else if (line.outcome == unchanged) {
            ++counts.unchanged;
        } else if (line.outcome == fails || line.outcome == raises) {
            ++counts.failing;
        } else {
            ++counts.skipped;
        }
    }
    return counts;
}

ExitStatus statusOf(const Plan& plan) {
    if (plan.stopsAt) {
        return ExitStatus::failed;
    }
    const bool isSafe = std::ranges::all_of(plan.steps, [](const PlannedStep& line) {
        return line.certainty != Certainty::opaque && line.outcome != PlannedOutcome::changes &&
               (line.certainty == Certainty::exact || line.effectCount == 0);
    });
    return isSafe ? ExitStatus::success : ExitStatus::changes;
}

std::string_view typeName(ItemState::Type type) {
    switch (type) {
    case ItemState::Type::file:
        return "file";
    case ItemState::Type::folder:
        return "folder";
    case ItemState::Type::link:
        return "link";
    case ItemState::Type::other:
        return "special file";
    case ItemState::Type::unknown:
        break;
    }
    return "unknown";
}

std::string stateText(const ItemState& state) {
    const std::string target = state.type == ItemState::Type::link ? " -> " + state.target : "";
    return fmt::format("{} {:04o} {}:{}{}", typeName(state.type), state.mode, state.user,
                       state.group, target);
}

Value stateValue(const ItemState& state) {
    PlanPairs pairs = {{Value::string("type"), Value::string(typeName(state.type))},
                       {Value::string("user"), Value::unsignedInteger(state.user)},
                       {Value::string("group"), Value::unsignedInteger(state.group)},
                       {Value::string("mode"), Value::string(fmt::format("{:04o}", state.mode))}};
    if (state.type == ItemState::Type::link) {
        pairs.emplace_back(Value::string("target"), pathText(state.target));
    }
    return Value::dictionary(std::move(pairs));
}

Value effectValue(const PlannedEffect& effect) {
    PlanPairs pairs = {{Value::string("path"), pathText(effect.path)}};
    const auto add = [&](std::string_view key, const std::optional<ItemState>& state) {
        if (state) {
            pairs.emplace_back(Value::string(key), stateValue(*state));
        }
    };
    add("before", effect.before);
    add("after", effect.after);
    if (!effect.note.empty()) {
        pairs.emplace_back(Value::string("note"), pathText(effect.note));
    }
    return Value::dictionary(std::move(pairs));
}

Value lineValue(const PlannedStep& line, const Value& step, std::size_t index) {
    PlanPairs pairs = {{Value::string("index"), Value::unsignedInteger(index)},
                       {Value::string("step"), Value::string(onOneLine(stepText(step)))},
                       {Value::string("certainty"), Value::string(certaintyName(line.certainty))},
                       {Value::string("outcome"), Value::string(outcomeName(line))}};
    if (line.holds) {
        pairs.emplace_back(Value::string("holds"), Value::boolean(*line.holds));
    }
    if (!line.reason.empty()) {
        pairs.emplace_back(Value::string("reason"), pathText(line.reason));
    }
    if (line.error) {
        pairs.emplace_back(Value::string("error"), Value::error(line.error));
    }
    if (line.stopsScript) {
        pairs.emplace_back(Value::string("stops"), Value::boolean(true));
    }
    if (line.effectCount != 0) {
        std::vector<Value> effects;
        std::ranges::transform(line.effects, std::back_inserter(effects), effectValue);
        pairs.emplace_back(Value::string("effects"), Value::array(std::move(effects)));
        pairs.emplace_back(Value::string("effectCount"), Value::unsignedInteger(line.effectCount));
    }
    return Value::dictionary(std::move(pairs));
}

Value planValue(const Plan& plan, const Value& steps) {
    const PlanCounts counts = countsOf(plan);
    std::vector<Value> lines;
    lines.reserve(plan.steps.size());
    for (std::size_t i = 0; i < plan.steps.size(); ++i) {
        lines.push_back(lineValue(plan.steps[i], steps.asArray()[i], i));
    }
    const auto number = [](std::size_t count) { return Value::unsignedInteger(count); };
    PlanPairs pairs = {{Value::string("steps"), Value::array(std::move(lines))},
                       {Value::string("changes"), number(counts.changes)},
                       {Value::string("unchanged"), number(counts.unchanged)},
                       {Value::string("skipped"), number(counts.skipped)},
                       {Value::string("fails"), number(counts.failing)},
                       {Value::string("depends"), number(counts.depends)},
                       {Value::string("opaque"), number(counts.opaque)}};
    if (plan.stopsAt) {
        pairs.emplace_back(Value::string("stopsAt"), number(*plan.stopsAt));
    }
    return withFormat(std::move(pairs));
}

// The remark behind the text of a step.
std::string remarkOn(const PlannedStep& line) {
    std::string remark(outcomeName(line));
    if (line.holds) {
        remark = *line.holds ? "holds" : "does not hold";
    } else if (line.error) {
        remark = fmt::format("fails: {} ({} {})", onOneLine(line.error.localizedDescription()),
                             line.error.domain(), line.error.code());
    }
    if (line.certainty != Certainty::exact) {
        const bool depends = line.certainty == Certainty::depends;
        remark = fmt::format("{}, {}{}", certaintyName(line.certainty),
                             depends ? "as things are: " : "", remark);
    }
    if (!line.reason.empty()) {
        remark += fmt::format(" ({})", onOneLine(line.reason));
    }
    return line.stopsScript ? remark + ", and stops the script" : remark;
}

char markOf(const PlannedStep& line) {
    if (line.certainty == Certainty::opaque) {
        return '*';
    }
    if (line.certainty == Certainty::depends) {
        return '?';
    }
    switch (line.outcome) {
    case PlannedOutcome::changes:
        return '~';
    case PlannedOutcome::fails:
    case PlannedOutcome::raises:
        return '!';
    case PlannedOutcome::skipped:
    case PlannedOutcome::notReached:
        return '-';
    default:
        return ' ';
    }
}

Style styleOf(const PlannedStep& line) {
    switch (markOf(line)) {
    case '~':
        return Style::good;
    case '!':
        return Style::bad;
    case '*':
    case '?':
        return Style::strong;
    case '-':
        return Style::faint;
    default:
        return Style::plain;
    }
}

void showEffects(const PlannedStep& line, const std::string& indent) {
    Terminal& out = Terminal::standardOutput();
    for (const PlannedEffect& effect : line.effects) {
        const char mark = effect.before && effect.after ? '~'
                          : effect.after                ? '+'
                          : effect.before               ? '-'
                                                        : '~';
        std::string text = fmt::format("{}    {} {}", indent, mark, effect.path);
        for (const std::optional<ItemState>* state : {&effect.before, &effect.after}) {
            if (*state) {
                const bool isSecond = state == &effect.after && effect.before.has_value();
                text += fmt::format("{}{}", isSecond ? " -> " : "  ", stateText(**state));
            }
        }
        if (!effect.note.empty()) {
            text += fmt::format("  ({})", effect.note);
        }
        out.line(out.styled(text, mark == '-'   ? Style::bad
                                  : mark == '+' ? Style::good
                                                : Style::plain));
    }
    if (line.effectCount > line.effects.size()) {
        out.line(fmt::format("{}    ... and {} more (--all shows them)", indent,
                             line.effectCount - line.effects.size()));
    }
}

void showPlan(const Plan& plan, const Value& steps, bool withEffects) {
    constexpr std::uint32_t kDeepest = 20;
    Terminal& out = Terminal::standardOutput();
    for (std::size_t i = 0; i < plan.steps.size(); ++i) {
        const PlannedStep& line = plan.steps[i];
        const std::string indent(std::size_t{2} * std::min(line.depth, kDeepest), ' ');
        const std::string text =
            fmt::format("{} {:>4} {}{}: {}", markOf(line), i + 1, indent,
                        onOneLine(stepText(steps.asArray()[i])), remarkOn(line));
        out.line(out.styled(text, styleOf(line)));
        if (withEffects) {
            showEffects(line, indent);
        }
    }
    const PlanCounts counts = countsOf(plan);
    out.line(
        fmt::format("{} change something, {} nothing, {} skipped, {} fail, {} depend, {} opaque",
                    counts.changes, counts.unchanged, counts.skipped, counts.failing,
                    counts.depends, counts.opaque));
    if (plan.stopsAt) {
        out.line(out.styled(fmt::format("The script would stop at step {} of {} (index {}).",
                                        *plan.stopsAt + 1, plan.steps.size(), *plan.stopsAt),
                            Style::bad));
    }
}

} // namespace

Result plan(const PlanCommandOptions& options) {
    const auto script = readSteps(options.file, options.json);
    if (!script) {
        return script.error();
    }
    const auto machine = Machine::below(options.root);
    if (!machine) {
        return tl::unexpected(machine.error());
    }
    PlanOptions planned;
    planned.services = (*machine)->services();
    planned.root = planned.services->root;
    planned.asRoot = ::geteuid() == 0;
    planned.mostEffects = options.all ? std::numeric_limits<std::size_t>::max() : kFewEffects;
    const auto root = userRecord(0);
    planned.trashOwnerHome = root && options.root.empty() ? root->home : "/root";
    if (planned.asRoot && options.root.empty()) {
        planned.preferences.emplace();
    }
    const Plan made = planOf(script->steps, planned);
    if (options.json) {
        Terminal::standardOutput().line(
            jsonText(planValue(made, script->steps), options.jsonOnOneLine));
    } else {
        showPlan(made, script->steps, options.diff || options.all);
    }
    return statusOf(made);
}

} // namespace qv::tools
