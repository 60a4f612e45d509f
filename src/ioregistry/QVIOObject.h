#pragma once

#include "platform/foundation/values/Value.h"
#include "platform/iokit/IOReturn.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

namespace qv {

/// A token for an object of the device registry, known by its entry ID. It holds one reference to
/// its handle, and so does each copy. For one thread at a time.
class QVIOObject {
public:
    static QVIOObject withIOObject(io_object_t obj) { return QVIOObject(obj); }

    QVIOObject() noexcept = default; ///< handle 0, entry ID 0
    /// The entry ID is 0 for what is not an entry, a handle that is not held for example.
    explicit QVIOObject(io_object_t obj);
    QVIOObject(const QVIOObject& other);
    QVIOObject(QVIOObject&& other) noexcept;
    QVIOObject& operator=(const QVIOObject& other);
    QVIOObject& operator=(QVIOObject&& other) noexcept;
    ~QVIOObject();

    [[nodiscard]] io_object_t ioObject() const noexcept { return ioObject_; }
    [[nodiscard]] io_object_t IOObject() const noexcept { return ioObject_; }
    /// Leaves the entry ID as it is.
    void setIoObject(io_object_t obj);
    [[nodiscard]] std::uint64_t uniqueID() const noexcept { return uniqueID_; }
    void setUniqueID(std::uint64_t uniqueID) noexcept { uniqueID_ = uniqueID; }

    /// Two objects are equal if their entry IDs are (two that are 0 as well), or if they have the
    /// same handle.
    friend bool operator==(const QVIOObject& left, const QVIOObject& right) noexcept;
    [[nodiscard]] std::size_t hash() const noexcept { return uniqueID_; }

    [[nodiscard]] static constexpr bool supportsSecureCoding() noexcept { return true; }
    /// The dictionary that an archive keeps of it, with the entry ID under "entryID".
    [[nodiscard]] Value encodeWithCoder() const;
    /// Returns the token of the entry of that ID; none if the entry has gone, or if "entryID" is
    /// not a number.
    [[nodiscard]] static std::optional<QVIOObject> initWithCoder(const Value& coder);

private:
    io_object_t ioObject_ = 0;
    std::uint64_t uniqueID_ = 0;
};

} // namespace qv

template <> struct std::hash<qv::QVIOObject> {
    std::size_t operator()(const qv::QVIOObject& object) const noexcept { return object.hash(); }
};
