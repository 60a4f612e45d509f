#include "platform/foundation/plist/BinarySurvey.h"

#include "platform/foundation/plist/Refusal.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <utility>

namespace qv::plist {

tl::expected<BinarySurvey, Error> BinarySurvey::of(const BinaryLayout& layout) {
    BinarySurvey survey(layout);
    bool sound = survey.checkObjects();
    if (!survey.inOrder_) { // then an object may be in the table twice: once more, by object
        BinarySurvey again(layout);
        again.findAliases();
        sound = again.checkObjects();
        survey = std::move(again);
    }
    if (!sound) {
        return tl::unexpected(survey.error_);
    }
    survey.numberShared();
    return survey;
}

bool BinarySurvey::fail(std::size_t offset, std::string_view wording) {
    error_ = binaryRefusal(offset, wording);
    return false;
}

void BinarySurvey::findAliases() {
    std::vector<std::uint32_t> order(layout_.objectCount());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, {},
                      [&](std::uint32_t i) { return std::pair(layout_.offsetOf(i), i); });
    canonical_.resize(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        const bool again = i > 0 && layout_.offsetOf(order[i - 1]) == layout_.offsetOf(order[i]);
        canonical_[order[i]] = again ? canonical_[order[i - 1]] : order[i];
    }
    canonicalTable_ = canonical_.data();
}

bool BinarySurvey::checkObjects() {
    if (layout_.objectCount() > std::numeric_limits<std::uint32_t>::max()) {
        return fail(layout_.tableOffset(), "Too many objects");
    }
    const BinaryNumbers& offsets = layout_.offsets();
    std::uint64_t last = 0;
    for (std::size_t i = 0; i < layout_.objectCount(); ++i) {
        const char* entry = layout_.place(layout_.entryOffset(i));
        const std::uint64_t offset = offsets.at(entry);
        if (offset < kHeaderSize || offset >= layout_.tableOffset() ||
            !offsets.fit(entry, entry + offsets.size())) {
            return fail(layout_.entryOffset(i), "Object offset out of range");
        }
        inOrder_ = inOrder_ && offset > last;
        last = offset;
        if (layout_.isContainerAt(offset) && canonical(i) == i && !checkContainer(offset)) {
            return false;
        }
    }
    note(canonical(layout_.topObject()));
    return true;
}

bool BinarySurvey::checkContainer(std::size_t offset) {
    BinaryObject object; // NOLINT(cppcoreguidelines-pro-type-member-init): `measure` fills it
    if (const char* fault = layout_.measure(offset, object)) {
        return fail(offset, fault);
    }
    if (object.contentSize > room_) {
        return fail(offset, "Objects overlap");
    }
    room_ -= object.contentSize;
    const BinaryNumbers& numbers = layout_.references();
    const std::size_t size = numbers.size();
    const char* const first = layout_.place(object.content);
    const char* const end = layout_.place(object.end());
    std::uint64_t largest = 0;
    for (const char* place = first; place != end; place += size) {
        largest = std::max(largest, numbers.at(place));
    }
    if (first != end && (largest >= layout_.objectCount() || !numbers.fit(first, end))) {
        return fail(offset, "Container with a reference to no object");
    }
    // Keys are leaves; the reader remembers them by itself.
    for (const char* place = layout_.place(object.elements()); place != end; place += size) {
        note(canonical(numbers.at(place)));
    }
    return true;
}

void BinarySurvey::numberShared() noexcept {
    for (Group& group : groups_) {
        group.sharedBefore = sharedCount_;
        sharedCount_ += static_cast<std::size_t>(std::popcount(group.shared));
    }
}

} // namespace qv::plist
