#include "script/review/plan/Plan.h"

#include "platform/foundation/values/Exception.h"
#include "script/operations/Fields.h"
#include "script/review/plan/PlannedRule.h"
#include "script/review/plan/StepPlanner.h"

#include <utility>

namespace qv {

namespace {

constexpr std::string_view kMayHaveStopped = "a step before it may stop the script";
constexpr std::string_view kMayBeSkipped = "its block may not be carried out";

// The numbers that every step has to give as numbers, also one that is skipped.
void checkNumbers(const Operation& operation, const StepFields& fields) {
    for (const Field& field : operation.fields) {
        const Value* value = fields[field.key];
        const FieldKindInfo& info = infoOf(field.kind);
        if (info.form == FieldForm::number && value != nullptr && !value->isNumber() &&
            !value->is(Value::Kind::string)) {
            refuseField(field.key, info.wanted, value);
        }
    }
}

std::vector<LeftItem> itemsLeft(SimulatedFiles& files, const std::string& path) {
    std::vector<LeftItem> items;
    files.beginStep();
    const auto top = files.hold(path, LastLink::keep);
    if (top) {
        files.walk(*top, [&](const Location& location, const ItemState& state) {
            items.push_back({pathOf(location), state, files.placeOnDisk(location)});
            if (!files.doubt().empty()) {
                items.back().state.type = ItemState::Type::unknown;
                files.beginStep();
            }
            return true;
        });
    }
    return items;
}

/// Goes through the steps as a replay does. Where a rule is in doubt both ways are gone: one state
/// carries the steps out, others wait for the end of their block or its else.
class PlanWalker {
public:
    PlanWalker(const PlanOptions& options)
        : options_(options), carrying_(PlanState(std::make_shared<SimulatedDisk>(options.root))) {}

    Plan walk(const Value& steps) {
        if (steps.is(Value::Kind::array)) {
            for (const Value& step : steps.asArray()) {
                PlannedStep line;
                planOne(step, line);
                plan_.steps.push_back(std::move(line));
            }
        }
        auto last = std::make_shared<PlanState>(finalState());
        plan_.itemsFrom = [last](const std::string& path) { return itemsLeft(last->files, path); };
        return std::move(plan_);
    }

private:
    [[nodiscard]] bool isOver() const { return !carrying_ && waitingCount_ == 0; }
    // The way to this step is not sure.
    [[nodiscard]] bool isInDoubt() const {
        return mayHaveStopped_ || (carrying_ && waitingCount_ > 0);
    }

    void planOne(const Value& step, PlannedStep& line) {
        line.depth = static_cast<std::uint32_t>(depth_);
        if (isOver()) {
            line.outcome = PlannedOutcome::notReached;
            return;
        }
        const bool wasInDoubt = isInDoubt();
        const bool mayHaveStopped = mayHaveStopped_;
        try {
            const StepFields fields = reader_.read(step);
            const Operation* operation = operationForCode(fields.operation());
            if (operation != nullptr) {
                checkNumbers(*operation, fields);
            }
            carryOut(operation, fields, line);
        } catch (const Exception& exception) {
            line.outcome = PlannedOutcome::raises;
            line.reason = exception.reason();
            line.stopsScript = true;
            raised();
        }
        if (wasInDoubt && line.certainty == Certainty::exact) {
            line.certainty = Certainty::depends;
            const std::string_view why = mayHaveStopped ? kMayHaveStopped : kMayBeSkipped;
            line.reason += line.reason.empty() ? why : "";
        }
        if (line.stopsScript && isOver() && !mayHaveStopped) {
            plan_.stopsAt = plan_.steps.size();
        }
    }

    // An exception of the record itself stops every state; one of an operation that which carries
    // it out.
    void raised() {
        if (carrying_) {
            stop();
            if (waitingCount_ > 0) {
                mayHaveStopped_ = true;
            }
            return;
        }
        for (std::optional<PlanState>& state : waiting_) {
            if (state) {
                carrying_ = std::move(state);
                state.reset();
            }
        }
        waitingCount_ = 0;
        stop();
    }

    void stop() {
        stopped_ = std::move(carrying_);
        carrying_.reset();
    }

    void carryOut(const Operation* operation, const StepFields& fields, PlannedStep& line) {
        if (operation == nullptr) {
            line.outcome = PlannedOutcome::skipped;
            clearLastError();
            return;
        }
        switch (operation->code) {
        case OperationCode::beginIfBlock:
            beginIf(fields, line);
            ++depth_;
            break;
        case OperationCode::beginElseBlock:
            line.depth -= depth_ > 0 ? 1 : 0;
            beginElse();
            break;
        case OperationCode::endIfBlock:
            depth_ -= depth_ > 0 ? 1 : 0;
            line.depth = static_cast<std::uint32_t>(depth_);
            endIf();
            break;
        default:
            operate(*operation, fields, line);
        }
    }

    void clearLastError() {
        if (carrying_) {
            carrying_->lastFailed = false;
        }
    }

    void operate(const Operation& operation, const StepFields& fields, PlannedStep& line) {
        if (!carrying_) {
            line.outcome = PlannedOutcome::skipped;
            return;
        }
        planStep(*carrying_, operation, fields, options_, line);
        if (operation.code >= OperationCode::updateProgressField) {
            clearLastError();
            return;
        }
        const bool isSure = line.certainty == Certainty::exact;
        const bool stopsOnErrors = carrying_->behaviour == 0;
        if (isSure && line.error && stopsOnErrors) {
            line.stopsScript = true;
            stop();
            mayHaveStopped_ = mayHaveStopped_ || waitingCount_ > 0;
        } else if ((!isSure && carrying_->behaviour.value_or(0) == 0) ||
                   (line.error && !carrying_->behaviour)) {
            mayHaveStopped_ = true;
        }
    }

    void beginIf(const StepFields& fields, PlannedStep& line) {
        if (!carrying_) {
            line.outcome = PlannedOutcome::skipped;
            waiting_.emplace_back();
            return;
        }
        PlanState& state = *carrying_;
        state.files.beginStep();
        const std::optional<Value> rule = fields.get<FieldKind::rule>(field::kRule.key);
        checkField(field::kRule, rule);
        const bool holds =
            plannedRuleHolds(rule, {state.files, options_.services, state.hasChanged,
                                    state.ranProgram, options_.asRoot, state.lastFailed});
        clearLastError();
        if (!state.files.doubt().empty()) {
            line.certainty = Certainty::depends;
            line.reason = state.files.doubt();
            waiting_.emplace_back(state);
            ++waitingCount_;
            return;
        }
        line.holds = holds;
        if (holds) {
            waiting_.emplace_back();
        } else {
            waiting_.push_back(std::exchange(carrying_, std::nullopt));
            ++waitingCount_;
        }
    }

    void beginElse() {
        clearLastError();
        if (waiting_.empty()) {
            waiting_.emplace_back();
        }
        std::optional<PlanState>& other = waiting_.back();
        waitingCount_ += (carrying_ ? 1U : 0U);
        waitingCount_ -= (other ? 1U : 0U);
        std::swap(carrying_, other);
        clearLastError();
    }

    void endIf() {
        if (!waiting_.empty()) {
            std::optional<PlanState> other = std::move(waiting_.back());
            waiting_.pop_back();
            waitingCount_ -= (other ? 1U : 0U);
            if (carrying_ && other) {
                carrying_->joinWith(*other);
            } else if (other) {
                carrying_ = std::move(other);
            }
        }
        clearLastError();
    }

    [[nodiscard]] PlanState finalState() {
        std::optional<PlanState> last = std::move(carrying_);
        for (std::optional<PlanState>& state : waiting_) {
            if (last && state) {
                last->joinWith(*state);
            } else if (state) {
                last = std::move(state);
            }
        }
        if (last && mayHaveStopped_) {
            last->files.makeUncertain({});
        }
        return last ? std::move(*last) : std::move(*stopped_);
    }

    const PlanOptions& options_;
    Plan plan_;
    StepReader reader_;
    std::optional<PlanState> carrying_; ///< none while the steps are skipped
    /// The state that goes on in the other branch of each open block, innermost last.
    std::vector<std::optional<PlanState>> waiting_;
    std::size_t waitingCount_ = 0; ///< of those that are there
    std::optional<PlanState> stopped_;
    std::size_t depth_ = 0;
    bool mayHaveStopped_ = false;
};

} // namespace

Plan planOf(const Value& steps, const PlanOptions& options) {
    return PlanWalker(options).walk(steps);
}

} // namespace qv
