#include "platform/foundation/plist/BinaryWriter.h"

#include "platform/foundation/plist/BinaryFormat.h"
#include "platform/foundation/plist/BinaryPlan.h"
#include "platform/foundation/values/UTF8.h"

#include <algorithm>
#include <bit>
#include <string_view>
#include <vector>

namespace qv::plist {

namespace {

using Kind = Value::Kind;

// The fewest bytes that hold numbers below `count`; no more than 8.
std::size_t bytesFor(std::uint64_t largest) {
    const auto bits = static_cast<std::size_t>(std::bit_width(largest));
    return std::max<std::size_t>(1, (bits + 7) / 8);
}

class BinaryWriter {
public:
    explicit BinaryWriter(const BinaryPlan& plan) : plan_(plan) {}

    std::string write() {
        const std::span<const BinaryPlan::Object> objects = plan_.objects();
        referenceSize_ = bytesFor(objects.size());
        constexpr std::size_t kShortObject = 16;
        out_.reserve(objects.size() * kShortObject);
        out_ += kBinaryMagic;
        out_ += '0';
        std::vector<std::uint64_t> offsets;
        offsets.reserve(objects.size());
        for (const BinaryPlan::Object& object : objects) {
            offsets.push_back(out_.size());
            append(object);
        }
        const std::uint64_t tableOffset = out_.size();
        const std::size_t offsetSize = bytesFor(tableOffset);
        for (const std::uint64_t offset : offsets) {
            number(offset, offsetSize);
        }
        out_.append(6, '\0');
        number(offsetSize, 1);
        number(referenceSize_, 1);
        number(objects.size(), 8);
        number(0, 8); // the root
        number(tableOffset, 8);
        return std::move(out_);
    }

private:
    void number(std::uint64_t value, std::size_t size) {
        for (std::size_t i = size; i > 0; --i) {
            out_ += static_cast<char>(static_cast<unsigned char>(value >> (8 * (i - 1))));
        }
    }

    void marker(BinaryType type, std::size_t low) {
        number((static_cast<std::uint64_t>(type) << 4U) | low, 1);
    }

    void integer(std::uint64_t value) {
        const std::size_t exponent = value <= 0xFF         ? 0
                                     : value <= 0xFFFF     ? 1
                                     : value <= 0xFFFFFFFF ? 2
                                                           : 3;
        marker(BinaryType::integer, exponent);
        number(value, std::size_t{1} << exponent);
    }

    void counted(BinaryType type, std::size_t count) {
        if (count <= kLargestLowCount) {
            marker(type, count);
        } else {
            marker(type, kLargestLowCount + 1);
            integer(count);
        }
    }

    void append(const BinaryPlan::Object& object) {
        const Value& value = object.value;
        switch (value.kind()) {
        case Kind::boolean:
            number(value.asBoolean() ? kTrueMarker : kFalseMarker, 1);
            break;
        case Kind::integer:
            appendInteger(value.asInteger());
            break;
        case Kind::unsignedInteger: // 8 bytes would be signed
            marker(BinaryType::integer, 4);
            number(0, 8);
            number(value.asUnsignedInteger(), 8);
            break;
        case Kind::real:
            marker(BinaryType::real, 3);
            number(std::bit_cast<std::uint64_t>(value.asReal()), 8);
            break;
        case Kind::date:
            number(kDateMarker, 1);
            number(std::bit_cast<std::uint64_t>(value.asDate().secondsSinceReference), 8);
            break;
        case Kind::data:
            counted(BinaryType::data, value.asData().size());
            out_ += value.asData();
            break;
        case Kind::string:
            appendString(value.asString());
            break;
        case Kind::uid:
            appendUID(value.asUID());
            break;
        case Kind::array:
        case Kind::set:
        case Kind::dictionary:
            appendContainer(object);
            break;
        default:
            number(kNullMarker, 1);
        }
    }

    void appendInteger(std::int64_t value) {
        if (value >= 0) {
            integer(static_cast<std::uint64_t>(value));
        } else {
            marker(BinaryType::integer, 3);
            number(static_cast<std::uint64_t>(value), 8);
        }
    }

    void appendString(std::string_view text) {
        const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
        if (std::ranges::all_of(text, isASCII)) {
            counted(BinaryType::ascii, text.size());
            out_ += text;
            return;
        }
        std::u16string units;
        for (std::size_t i = 0; i < text.size();) {
            const char32_t point = decodeUTF8(text, i);
            if (point < 0x10000) {
                units += static_cast<char16_t>(point);
            } else {
                units += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10U));
                units += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FFU));
            }
        }
        counted(BinaryType::utf16, units.size());
        for (const char16_t unit : units) {
            number(unit, 2);
        }
    }

    void appendUID(UID uid) {
        const std::size_t size = uid.index <= 0xFF ? 1 : uid.index <= 0xFFFF ? 2 : 4;
        marker(BinaryType::uid, size - 1);
        number(uid.index, size);
    }

    void appendContainer(const BinaryPlan::Object& object) {
        const Kind kind = object.value.kind();
        counted(kind == Kind::array ? BinaryType::array
                : kind == Kind::set ? BinaryType::set
                                    : BinaryType::dictionary,
                childCount(object.value));
        for (const std::uint32_t reference : plan_.references(object)) {
            number(reference, referenceSize_);
        }
    }

    const BinaryPlan& plan_;
    std::string out_;
    std::size_t referenceSize_ = 1;
};

} // namespace

tl::expected<std::string, Error> writeBinary(const Value& root) {
    BinaryPlan plan;
    if (Error error = plan.layOut(root)) {
        return tl::unexpected(std::move(error));
    }
    return BinaryWriter(plan).write();
}

} // namespace qv::plist
