#include "platform/foundation/plist/BinaryLayout.h"

#include "platform/foundation/plist/Refusal.h"

#include <fmt/core.h>

#include <limits>

namespace qv::plist {

namespace {

constexpr std::uint64_t kLargestSigned = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t kSmallestList = kHeaderSize + 1 + kTrailerSize;

// Places within the trailer.
constexpr std::size_t kOffsetSizePlace = 6;
constexpr std::size_t kReferenceSizePlace = 7;
constexpr std::size_t kObjectCountPlace = 8;
constexpr std::size_t kTopObjectPlace = 16;
constexpr std::size_t kTableOffsetPlace = 24;

// Whether numbers of so many bytes reach `value`.
bool reaches(std::size_t size, std::uint64_t value) {
    return size >= sizeof(value) || (value >> (8 * size)) == 0;
}

} // namespace

bool BinaryNumbers::wideFit(const char* place, const char* end) const noexcept {
    for (; place != end; place += size_) {
        if (std::any_of(place, place + skip_, [](char byte) { return byte != 0; })) {
            return false;
        }
    }
    return true;
}

BinaryLayout::BinaryLayout(std::string_view data) noexcept : data_(data) {
    const std::size_t trailer = data.size() - kTrailerSize;
    objectCount_ = number(trailer + kObjectCountPlace, 8);
    topObject_ = number(trailer + kTopObjectPlace, 8);
    tableOffset_ = number(trailer + kTableOffsetPlace, 8);
}

tl::expected<BinaryLayout, Error> BinaryLayout::of(std::string_view data) {
    if (data.size() < kSmallestList) {
        return tl::unexpected(binaryRefusal(
            data.size(), fmt::format("Binary list ends before {} bytes", kSmallestList)));
    }
    BinaryLayout layout(data);
    const std::size_t trailer = data.size() - kTrailerSize;
    const std::size_t offsetSize = layout.markerAt(trailer + kOffsetSizePlace);
    const std::size_t referenceSize = layout.markerAt(trailer + kReferenceSizePlace);
    if (Error error = layout.checkTrailer(offsetSize, referenceSize)) {
        return tl::unexpected(std::move(error));
    }
    layout.offsets_ = BinaryNumbers(offsetSize);
    layout.references_ = BinaryNumbers(referenceSize);
    const auto unitOf = [&](BinaryType type) -> std::uint16_t& {
        return layout.units_.at(static_cast<std::size_t>(type));
    };
    unitOf(BinaryType::data) = unitOf(BinaryType::ascii) = 1;
    unitOf(BinaryType::utf16) = 2;
    unitOf(BinaryType::array) = unitOf(BinaryType::set) = static_cast<std::uint16_t>(referenceSize);
    unitOf(BinaryType::dictionary) = static_cast<std::uint16_t>(2 * referenceSize);
    return layout;
}

Error BinaryLayout::checkTrailer(std::size_t offsetSize, std::size_t referenceSize) const {
    const std::size_t trailer = data_.size() - kTrailerSize;
    const auto refuse = [&](std::size_t place, std::string_view wording) {
        return binaryRefusal(trailer + place, wording);
    };
    if (objectCount_ > kLargestSigned) {
        return refuse(kObjectCountPlace, "Number of objects out of range");
    }
    if (tableOffset_ > kLargestSigned) {
        return refuse(kTableOffsetPlace, "Offset of the offset table out of range");
    }
    if (objectCount_ == 0) {
        return refuse(kObjectCountPlace, "No objects");
    }
    if (topObject_ >= objectCount_) {
        return refuse(kTopObjectPlace, "Top object is not among the objects");
    }
    if (tableOffset_ <= kHeaderSize || tableOffset_ >= trailer) {
        return refuse(kTableOffsetPlace, "Offset of the offset table out of range");
    }
    if (offsetSize == 0) {
        return refuse(kOffsetSizePlace, "Offset size is zero");
    }
    if (referenceSize == 0) {
        return refuse(kReferenceSizePlace, "Reference size is zero");
    }
    const std::uint64_t tableSize = trailer - tableOffset_;
    if (tableSize % offsetSize != 0 || tableSize / offsetSize != objectCount_) {
        return refuse(kObjectCountPlace,
                      "Offset table of as many objects does not end at the trailer");
    }
    if (!reaches(referenceSize, objectCount_)) {
        return refuse(kReferenceSizePlace, "Reference size too small for the number of objects");
    }
    if (!reaches(offsetSize, tableOffset_)) {
        return refuse(kOffsetSizePlace, "Offset size too small for the offset table's offset");
    }
    if (objectCount_ > tableOffset_ - kHeaderSize) {
        return refuse(kObjectCountPlace, "More objects than bytes for them");
    }
    return {};
}

// An integer object in front of the content holds the count. Answers what is wrong, if anything.
const char* BinaryLayout::readCount(BinaryObject& object, const BinaryRule& rule) const noexcept {
    if (rule.size == BinarySize::unknown) {
        return "Unknown object marker";
    }
    if (object.content >= tableOffset_) {
        return kPassesTable;
    }
    const std::uint8_t marker = markerAt(object.content);
    const BinaryRule countRule = kBinaryRules.data()[marker];
    if (static_cast<BinaryType>(marker >> 4U) != BinaryType::integer ||
        countRule.size != BinarySize::fixed) {
        return "Count is not an integer";
    }
    const std::size_t place = object.content + 1;
    if (countRule.bytes > tableOffset_ - place) {
        return kPassesTable;
    }
    const BinaryNumbers numbers(countRule.bytes);
    object.count = numbers.at(this->place(place));
    object.content = place + countRule.bytes;
    if (object.count > kLargestSigned ||
        !numbers.fit(this->place(place), this->place(object.content))) {
        return "Count out of range";
    }
    return object.count < tableOffset_ ? nullptr : kPassesTable;
}

} // namespace qv::plist
