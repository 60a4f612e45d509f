#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::test {

/// A binary property list made by hand, object by object, for what no writer would write.
/// References have four bytes; the root is object 0.
class RawList {
public:
    using References = std::vector<std::uint32_t>;

    /// Adds an object and gives its number.
    std::uint32_t add(std::string object) {
        objects_.push_back(std::move(object));
        return static_cast<std::uint32_t>(objects_.size() - 1);
    }
    static std::string array(const References& elements) {
        return counted('\xA0', elements.size()) + joined(elements);
    }
    static std::string dictionary(const References& keys, const References& values) {
        return counted('\xD0', keys.size()) + joined(keys) + joined(values);
    }
    static std::string text(std::string_view ascii) {
        return counted('\x50', ascii.size()).append(ascii);
    }
    static std::string number(std::uint8_t value) { return {'\x10', static_cast<char>(value)}; }

    [[nodiscard]] std::string bytes() const {
        std::string list = "bplist00";
        std::string table;
        for (const std::string& object : objects_) {
            table += bigEndian(list.size(), 4);
            list += object;
        }
        return list + table + std::string(6, '\0') + "\x04\x04" + bigEndian(objects_.size(), 8) +
               bigEndian(0, 8) + bigEndian(list.size(), 8);
    }

private:
    static std::string bigEndian(std::uint64_t value, unsigned size) {
        std::string bytes;
        for (unsigned i = size; i-- > 0;) {
            bytes += static_cast<char>((value >> (8U * i)) & 0xFFU);
        }
        return bytes;
    }
    static std::string counted(char marker, std::size_t count) {
        constexpr std::size_t kMostInline = 14;
        if (count <= kMostInline) {
            return {static_cast<char>(static_cast<unsigned char>(marker) + count)};
        }
        return std::string{static_cast<char>(static_cast<unsigned char>(marker) + 15), '\x12'} +
               bigEndian(count, 4);
    }
    static std::string joined(const References& references) {
        std::string bytes;
        for (const std::uint32_t reference : references) {
            bytes += bigEndian(reference, 4);
        }
        return bytes;
    }

    std::vector<std::string> objects_;
};

} // namespace qv::test
