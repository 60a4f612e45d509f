#include "script/review/lint/OwnerReview.h"

#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Exception.h"

#include <fmt/format.h>

namespace qv::review {

namespace {

std::string shownIdentifier(const Value& identifier) {
    constexpr std::size_t kLongest = 80;
    return identifier.is(Value::Kind::string) ? inQuotes(identifier.asString())
                                              : description(identifier, kLongest);
}

} // namespace

void OwnerReview::take(const ReviewedStep& step) {
    if (step.is(OperationCode::setKeyValueStorage)) {
        replaceStorage(step, step.value(step.operation->fields.front()));
        return;
    }
    const Field* field = step.field("identifier");
    const Value* identifier = field == nullptr ? nullptr : step.value(*field);
    if (identifier == nullptr) {
        return;
    }
    try {
        if (step.is(OperationCode::saveOwnerAndGroupOfURL)) {
            save(step, *identifier);
        } else {
            apply(step, *field, *identifier);
        }
    } catch (const Exception& exception) { // it names no entry
        findings_.add(Check::wrongType, step.at(*field),
                      {exception.reason(), "write a text as the identifier"});
    }
}

void OwnerReview::save(const ReviewedStep& step, const Value& identifier) {
    storage_.setObject(Value::boolean(true), identifier);
    unused_.setObject(Value::unsignedInteger(saved_.size()), identifier);
    saved_.push_back({identifier, step.index, blocks_.branch()});
}

void OwnerReview::apply(const ReviewedStep& step, const Field& field, const Value& identifier) {
    unused_.setObject(Value::boolean(false), identifier);
    if (storage_.objectForKey(identifier) == nullptr) {
        findings_.add(Check::ownerNotSaved, step.at(field),
                      {fmt::format("no step before has saved an owner as {}, so the step fails",
                                   shownIdentifier(identifier)),
                       "save it before, under the same identifier"});
        storage_.setObject(Value::boolean(true), identifier); // told once
    }
}

void OwnerReview::replaceStorage(const ReviewedStep& step, const Value* storage) {
    for (std::size_t i = 0; i < saved_.size(); ++i) {
        const Value* use = unused_.objectForKey(saved_[i].identifier);
        const bool isUnused = use != nullptr && use->is(Value::Kind::integer) &&
                              use->asInteger() == static_cast<std::int64_t>(i);
        if (isUnused && blocks_.isInside(saved_[i].branch)) {
            findings_.add(
                Check::savedOwnerDropped, {step.index},
                {fmt::format("the new storage drops the owner that {} has saved as {}",
                             stepName(saved_[i].step), shownIdentifier(saved_[i].identifier)),
                 "set the storage before owners are saved"});
        }
    }
    saved_.clear();
    if (storage == nullptr || !storage->is(Value::Kind::dictionary)) {
        return;
    }
    if (blocks_.branch().depth == 0) {
        storage_ = KeyValueStorage(*storage);
        return;
    }
    const DictionaryView entries = storage->asDictionary(); // or the one before: either may be
    for (std::size_t i = 0; i < entries.size(); ++i) {
        storage_.setObject(Value::boolean(true), Value::string(entries.key(i)));
    }
}

} // namespace qv::review
