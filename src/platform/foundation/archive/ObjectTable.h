#pragma once

#include "platform/foundation/archive/ArchiveClass.h"
#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qv {

/// The objects of an archive, turned into values on demand, each once.
class ObjectTable {
public:
    /// `elements` are those of `$objects`, which must outlive the table. `archiveBytes`: the length
    /// of the archive, which bounds what may be made of it: one list in it, or one text, can stand
    /// for many objects that each copy it.
    ObjectTable(std::span<const Value> elements, std::size_t archiveBytes)
        : elements_(elements), slots_(elements.size()), referencesLeft_(archiveBytes),
          textLeft_(kTextOfByte * archiveBytes) {}

    /// The object of a number, none for nil. Works through all that it refers to.
    [[nodiscard]] tl::expected<std::optional<Value>, Error> object(UID uid);

private:
    // An error or a URL takes more than 20 bytes, its domain or its base not many times that.
    static constexpr std::size_t kTextOfByte = 64;

    enum class State : std::uint8_t { untouched, open, done };
    struct Slot {
        std::optional<Value> value; // none: nil, or not done
        std::uint16_t height = 0;   // objects within one another, from here down
        State state = State::untouched;
    };
    struct OpenObject {
        std::uint32_t index = 0;
        ArchiveClass type = ArchiveClass::null;
        std::vector<std::uint32_t> children; // of a dictionary: the keys, then the values
        std::size_t next = 0;
        int height = 0; // of the highest child done
    };

    Error begin(std::uint32_t index);
    Error beginObject(std::uint32_t index, const Value& element);
    Error step();
    Error close(const OpenObject& done);
    void settle(std::uint32_t index, std::optional<Value> value, int height);

    tl::expected<ArchiveClass, Error> classOf(std::uint32_t index, const Value& element);
    tl::expected<ArchiveClass, Error> readClass(std::uint32_t index);
    Error addReference(OpenObject& object, const Value* uid, std::string_view key);
    Error addReferences(OpenObject& object, const Value& element, std::string_view key);
    Error addNumbered(OpenObject& object, const Value& element);
    Error addDictionary(OpenObject& object, const Value& element);
    Error addChildren(OpenObject& object, const Value& element);

    tl::expected<Value, Error> build(const OpenObject& done);
    tl::expected<Value, Error> buildDictionary(const OpenObject& done);
    tl::expected<Value, Error> buildURL(const OpenObject& done);
    tl::expected<Value, Error> buildError(const OpenObject& done);

    Error takeText(std::uint32_t index, std::size_t size);
    [[nodiscard]] Error fault(std::uint32_t index, std::string_view what) const;
    [[nodiscard]] tl::unexpected<Error> refusal(std::uint32_t index, std::string_view what) const;

    std::span<const Value> elements_;
    std::vector<Slot> slots_;
    std::vector<OpenObject> open_;
    std::unordered_map<std::uint32_t, ArchiveClass> classes_;
    // The URLs by the identities of the text and of the base, 0 without one.
    std::map<std::pair<std::uintptr_t, std::uintptr_t>, Value> urls_;
    std::size_t referencesLeft_; // each takes a byte at least
    std::size_t textLeft_;
};

} // namespace qv
