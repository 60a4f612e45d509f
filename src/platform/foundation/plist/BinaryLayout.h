#pragma once

#include "platform/foundation/plist/BinaryFormat.h"
#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qv::plist {

/// One object: where it stands and what its marker says.
struct BinaryObject {
    std::size_t offset;
    std::size_t content;       ///< offset of what follows marker and count
    std::uint64_t count;       ///< bytes, units, references or pairs
    std::uint64_t contentSize; ///< in bytes
    BinaryType type;
    std::uint8_t marker;

    [[nodiscard]] std::size_t end() const noexcept { return content + contentSize; }
    /// The offset at which a container's references to elements or values begin.
    [[nodiscard]] std::size_t elements() const noexcept {
        return type == BinaryType::dictionary ? content + contentSize / 2 : content;
    }
};

/// Unsigned big-endian numbers of one size from 1 to 255 bytes. The last 8 bytes of longer ones
/// count; whether the others are zero is to be checked once.
class BinaryNumbers {
public:
    explicit constexpr BinaryNumbers(std::size_t size = 1) noexcept
        : size_(static_cast<std::uint32_t>(size)), skip_(size > kWord ? size_ - kWord : 0),
          shift_(size < kWord ? 8 * (kWord - size_) : 0) {}

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    /// Reads 8 bytes whatever the size; a list's trailer follows all its numbers.
    [[nodiscard]] std::uint64_t at(const char* place) const noexcept {
        std::uint64_t word = 0;
        std::memcpy(&word, place + skip_, sizeof(word));
        if constexpr (std::endian::native == std::endian::little) {
            word = __builtin_bswap64(word);
        }
        return word >> shift_;
    }
    /// Whether 64 bits hold every number from one place to another.
    [[nodiscard]] bool fit(const char* place, const char* end) const noexcept {
        return !isWide() || wideFit(place, end);
    }

private:
    static constexpr std::uint32_t kWord = sizeof(std::uint64_t);
    [[nodiscard]] bool isWide() const noexcept { return skip_ != 0; }
    [[nodiscard]] bool wideFit(const char* place, const char* end) const noexcept;

    // The size has 32 bits, so that the compiler sees that no Value overlaps them.
    std::uint32_t size_;
    std::uint32_t skip_;
    std::uint32_t shift_;
};

/// Header, trailer and offset table of a binary list: finds objects and reads references. An
/// instance stands for a list whose trailer was found sound; its objects are not checked yet.
class BinaryLayout {
public:
    [[nodiscard]] static tl::expected<BinaryLayout, Error> of(std::string_view data);

    [[nodiscard]] std::string_view data() const noexcept { return data_; }
    [[nodiscard]] std::size_t objectCount() const noexcept { return objectCount_; }
    [[nodiscard]] std::size_t topObject() const noexcept { return topObject_; }
    /// The offset at which the objects end.
    [[nodiscard]] std::size_t tableOffset() const noexcept { return tableOffset_; }
    [[nodiscard]] const BinaryNumbers& references() const noexcept { return references_; }
    [[nodiscard]] const BinaryNumbers& offsets() const noexcept { return offsets_; }
    [[nodiscard]] std::size_t entryOffset(std::size_t index) const noexcept {
        return tableOffset_ + index * offsets_.size();
    }
    [[nodiscard]] const char* place(std::size_t offset) const noexcept {
        return data_.data() + offset;
    }

    /// The offset of an object.
    [[nodiscard]] std::uint64_t offsetOf(std::size_t index) const noexcept {
        return offsets_.at(place(entryOffset(index)));
    }
    [[nodiscard]] std::uint64_t reference(std::size_t offset) const noexcept {
        return references_.at(place(offset));
    }
    [[nodiscard]] std::uint8_t markerAt(std::size_t offset) const noexcept {
        return static_cast<std::uint8_t>(*place(offset));
    }
    [[nodiscard]] bool isContainerAt(std::size_t offset) const noexcept {
        return static_cast<BinaryType>(markerAt(offset) >> 4U) >= BinaryType::array;
    }
    /// An unsigned number of `size` bytes; the low 8 of more.
    [[nodiscard]] std::uint64_t number(std::size_t offset, std::size_t size) const noexcept {
        return BinaryNumbers(size).at(place(offset));
    }

    /// Takes the measure of the object at an offset within the object area. A null pointer, or
    /// what is wrong: an unknown marker, a bad size or count, an extent that passes the area.
    const char* measure(std::size_t offset, BinaryObject& object) const noexcept {
        object.marker = markerAt(offset);
        object.type = static_cast<BinaryType>(object.marker >> 4U);
        object.offset = offset;
        object.content = offset + 1;
        const BinaryRule rule = kBinaryRules.data()[object.marker];
        if (rule.size == BinarySize::fixed) {
            object.count = rule.bytes;
            object.contentSize = rule.bytes;
        } else {
            object.count = object.marker & 0xFU;
            if (rule.size == BinarySize::follows && markerAt(offset + 1) == kOneByteInteger &&
                tableOffset_ - offset > 2) { // as most strings have it
                object.count = markerAt(offset + 2);
                object.content = offset + 3;
            } else if (rule.size != BinarySize::low) {
                if (const char* fault = readCount(object, rule)) {
                    return fault;
                }
            }
            object.contentSize = object.count * units_.data()[object.marker >> 4U];
        }
        return object.contentSize <= tableOffset_ - object.content ? nullptr : kPassesTable;
    }

private:
    static constexpr const char* kPassesTable = "Object passes the offset table";

    explicit BinaryLayout(std::string_view data) noexcept;
    [[nodiscard]] Error checkTrailer(std::size_t offsetSize, std::size_t referenceSize) const;
    const char* readCount(BinaryObject& object, const BinaryRule& rule) const noexcept;

    std::string_view data_;
    BinaryNumbers offsets_;
    BinaryNumbers references_;
    std::uint64_t objectCount_ = 0;
    std::uint64_t topObject_ = 0;
    std::uint64_t tableOffset_ = 0;
    std::array<std::uint16_t, 16> units_{}; // bytes of each counted unit, by type
};

} // namespace qv::plist
