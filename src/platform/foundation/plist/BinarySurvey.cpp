#include "platform/foundation/plist/BinarySurvey.h"

#include "platform/foundation/plist/Refusal.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace qv::plist {

tl::expected<BinarySurvey, Error> BinarySurvey::of(const BinaryLayout& layout) {
    BinarySurvey survey(layout);
    if (!survey.checkOffsets() || !survey.checkContainers()) {
        return tl::unexpected(survey.error_);
    }
    survey.numberShared();
    return survey;
}

bool BinarySurvey::fail(std::size_t offset, std::string_view wording) {
    error_ = binaryRefusal(offset, wording);
    return false;
}

bool BinarySurvey::checkOffsets() {
    if (layout_.objectCount() > std::numeric_limits<std::uint32_t>::max()) {
        return fail(layout_.tableOffset(), "Too many objects");
    }
    bool increasing = true;
    std::uint64_t last = 0;
    for (std::size_t i = 0; i < layout_.objectCount(); ++i) {
        const std::uint64_t offset = layout_.offsetOf(i);
        if (offset < kHeaderSize || offset >= layout_.tableOffset() ||
            !layout_.offsets().fits(layout_.place(layout_.entryOffset(i)))) {
            return fail(layout_.entryOffset(i), "Object offset out of range");
        }
        increasing = increasing && offset > last;
        last = offset;
    }
    if (!increasing) { // as they are where a writer laid each object down once, in their order
        findAliases();
    }
    return true;
}

void BinarySurvey::findAliases() {
    std::vector<std::uint32_t> order(layout_.objectCount());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::stable_sort(order, {}, [&](std::uint32_t i) { return layout_.offsetOf(i); });
    canonical_.resize(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        const bool again = i > 0 && layout_.offsetOf(order[i - 1]) == layout_.offsetOf(order[i]);
        canonical_[order[i]] = again ? canonical_[order[i - 1]] : order[i];
    }
}

bool BinarySurvey::checkContainers() {
    groups_.resize((layout_.objectCount() + kGroup - 1) / kGroup);
    for (std::size_t i = 0; i < layout_.objectCount(); ++i) {
        const std::size_t offset = layout_.offsetOf(i);
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
    const BinaryNumbers numbers = layout_.references();
    const std::uint64_t count = layout_.objectCount();
    const char* end = layout_.place(object.end());
    // Keys are leaves; the reader remembers them by itself.
    const char* values = layout_.place(object.elements());
    for (const char* place = layout_.place(object.content); place != end; place += numbers.size()) {
        const std::uint64_t index = numbers.at(place);
        if (index >= count || !numbers.fits(place)) {
            return fail(static_cast<std::size_t>(place - layout_.place(0)),
                        "Reference to an object beyond the last");
        }
        if (place >= values) {
            note(canonical(index));
        }
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
