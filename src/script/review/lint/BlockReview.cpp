#include "script/review/lint/BlockReview.h"

#include "platform/foundation/values/Conversions.h"

#include <fmt/format.h>

namespace qv::review {

namespace {

// The service answers for these steps; the others steer the script and cannot fail.
bool mayFail(const Operation* operation) {
    return operation != nullptr && operation->code < OperationCode::updateProgressField &&
           operation->code != OperationCode::waitForQuitOfApplicationWithPID;
}

bool isNumberOrText(const Value* value) {
    return value == nullptr || value->isNumber() || value->is(Value::Kind::string);
}

} // namespace

void BlockReview::take(const ReviewedStep& step, Findings& findings) {
    const bool isMark =
        step.is(OperationCode::beginElseBlock) || step.is(OperationCode::endIfBlock);
    if (!blocks_.empty() && !isMark) {
        ++blocks_.back().steps;
    }
    if (step.is(OperationCode::beginIfBlock)) {
        beginIf(step, findings);
    } else if (step.is(OperationCode::beginElseBlock)) {
        beginElse(step, findings);
    } else if (step.is(OperationCode::endIfBlock)) {
        endIf(step, findings);
    } else if (step.is(OperationCode::setErrorHandlingBehaviour)) {
        const Value* value = step.value(step.operation->fields.front());
        if (isNumberOrText(value)) {
            behaviour_ = {intValue(value), step.index};
        }
    }
    previous_ = step.operation;
}

void BlockReview::beginIf(const ReviewedStep& step, Findings& findings) {
    reviewRule(step, step.operation->fields.front(), findings);
    blocks_.push_back({.step = step.index, .before = behaviour_, .afterFirst = {}});
    openBranches_.push_back(++lastBranch_);
}

void BlockReview::beginElse(const ReviewedStep& step, Findings& findings) {
    if (blocks_.empty()) {
        findings.add(
            Check::strayElse, {step.index},
            {"the else stands outside of a block, and switches off all steps up to the next "
             "end of a block",
             "put an if before it, or leave it out"});
        return;
    }
    Block& block = blocks_.back();
    if (block.hasElse) {
        findings.add(
            Check::secondElse, {step.index},
            {fmt::format("the block that begins at {} has an else already", stepName(block.step)),
             "end the block before it, or begin another one in the else"});
    } else {
        block.afterFirst = behaviour_;
        block.hasElse = true;
    }
    behaviour_ = block.before;
    openBranches_.back() = ++lastBranch_;
}

void BlockReview::endIf(const ReviewedStep& step, Findings& findings) {
    if (blocks_.empty()) {
        findings.add(Check::strayEndIf, {step.index},
                     {"no block is open here", "put an if before it, or leave it out"});
        return;
    }
    const Block& block = blocks_.back();
    if (block.steps == 0) {
        findings.add(Check::emptyBlock, {block.step},
                     {"the block holds no steps", "leave it out, or put steps into it"});
    }
    const Behaviour& other = block.hasElse ? block.afterFirst : block.before;
    if (other.value != behaviour_.value) {
        behaviour_ = {std::nullopt, std::nullopt};
    }
    blocks_.pop_back();
    openBranches_.pop_back();
}

void BlockReview::reviewRule(const ReviewedStep& step, const Field& field, Findings& findings) {
    const Value* rule = step.value(field);
    if (rule == nullptr || !rule->is(Value::Kind::string)) {
        return;
    }
    const RuleReading& reading = rules_.read(rule->asString());
    for (const RuleFault& fault : reading.faults) {
        Place place = step.at(field);
        place.offset = fault.offset;
        findings.add(fault.check, place, fault.explanation);
    }
    if (reading.asksForLastError) {
        reviewLastError(step, field, findings);
    }
}

void BlockReview::reviewLastError(const ReviewedStep& step, const Field& field,
                                  Findings& findings) {
    Explanation explanation;
    if (stopsAtErrors()) {
        explanation = {"a failure of the step before stops the script, so there is no error here",
                       "set the error behaviour to 1 before that step"};
    } else if (!mayFail(previous_)) {
        explanation = {
            step.index == 0 ? std::string("no step comes before this one, so there is no error")
            : previous_ == nullptr
                ? "the step before does nothing, so there is no error"
                : fmt::format("the step before, \"{}\", cannot fail, and has cleared any error "
                              "of an earlier one",
                              previous_->name),
            "put the if directly behind the operation that may fail"};
    } else {
        return;
    }
    findings.add(Check::deadErrorQuestion, step.at(field), std::move(explanation));
}

void BlockReview::end(const LintOptions& options, Findings& findings) {
    for (const Block& block : blocks_) {
        findings.add(Check::openBlock, {block.step},
                     {"the block has no end, and holds all the rest of the script",
                      "end it behind its last step"});
    }
    if (behaviour_.value.value_or(0) != 0 && behaviour_.step && !options.isRecorded) {
        findings.add(
            Check::errorsPassedOver, {*behaviour_.step},
            {"failures are passed over from here to the end, and the script reports success "
             "in any case",
             "set the error behaviour to 0 behind the last step that may fail"});
    }
}

} // namespace qv::review
