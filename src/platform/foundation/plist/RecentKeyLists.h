#pragma once

#include "platform/foundation/values/Value.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qv::plist {

/// The key lists met last, found by a signature: bytes that spell the same keys in the same order
/// and nothing else. The dictionaries of a list mostly have a handful of key lists between them;
/// with this they share them, and no key is looked at twice.
class RecentKeyLists {
public:
    /// A null pointer when the list is not among the recent ones. Valid until `remember`.
    [[nodiscard]] const KeyList* find(std::string_view signature) const noexcept {
        const Entry& entry = entries_.data()[slotOf(signature)];
        return entry.isUsed && entry.signature == signature ? &entry.keys : nullptr;
    }
    /// Lists with long signatures are not kept.
    void remember(std::string_view signature, const KeyList& keys);

private:
    struct Entry {
        std::string signature;
        KeyList keys;
        bool isUsed = false;
    };
    static constexpr std::size_t kSlots = 64;

    // A mixture of the first and the last eight bytes and the length.
    [[nodiscard]] static std::size_t slotOf(std::string_view signature) noexcept {
        constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        if (signature.size() >= sizeof(first)) {
            std::memcpy(&first, signature.data(), sizeof(first));
            std::memcpy(&last, signature.data() + signature.size() - sizeof(last), sizeof(last));
        } else {
            for (const char c : signature) {
                first = (first << 8U) | static_cast<unsigned char>(c);
            }
        }
        const std::uint64_t hash = ((first * kFactor) ^ last ^ signature.size()) * kFactor;
        return hash >> (64U - std::bit_width(kSlots - 1));
    }
    std::array<Entry, kSlots> entries_;
};

/// Builds the dictionaries of text: keys are gathered as bytes of a signature, so that a dictionary
/// whose keys were met before needs no key made.
class TextDictionaries {
public:
    /// Appends a key to a signature.
    static void appendKey(std::string& signature, std::string_view key);
    /// One value for each key of the signature; of two equal keys the later value counts.
    /// `repeated` is left alone, or set to the first key that comes twice.
    [[nodiscard]] Value dictionary(std::string_view signature, std::span<Value> values,
                                   std::optional<std::string>& repeated);

private:
    RecentKeyLists recent_;
};

} // namespace qv::plist
