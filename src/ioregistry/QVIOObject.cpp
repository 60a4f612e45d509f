#include "ioregistry/QVIOObject.h"

#include "platform/foundation/values/Conversions.h"
#include "platform/iokit/IOKit.h"
#include "platform/system/ClassRegistry.h"

#include <utility>

namespace qv {

namespace {

constexpr std::string_view kEntryIDKey = "entryID";

} // namespace

QVIOObject::QVIOObject(io_object_t obj) {
    setIoObject(obj);
    std::uint64_t entryID = 0;
    if (IORegistryEntryGetRegistryEntryID(obj, entryID) == kIOReturnSuccess) {
        setUniqueID(entryID);
    }
}

QVIOObject::QVIOObject(const QVIOObject& other) : uniqueID_(other.uniqueID_) {
    setIoObject(other.ioObject_);
}

QVIOObject::QVIOObject(QVIOObject&& other) noexcept
    : ioObject_(std::exchange(other.ioObject_, 0)), uniqueID_(std::exchange(other.uniqueID_, 0)) {}

QVIOObject& QVIOObject::operator=(const QVIOObject& other) {
    setIoObject(other.ioObject_);
    uniqueID_ = other.uniqueID_;
    return *this;
}

QVIOObject& QVIOObject::operator=(QVIOObject&& other) noexcept {
    std::swap(ioObject_, other.ioObject_);
    std::swap(uniqueID_, other.uniqueID_);
    return *this;
}

QVIOObject::~QVIOObject() { setIoObject(0); }

void QVIOObject::setIoObject(io_object_t obj) {
    if (obj != 0) { // first, because it may be the one that is held
        static_cast<void>(IOObjectRetain(obj));
    }
    if (ioObject_ != 0) {
        IOObjectRelease(ioObject_);
    }
    ioObject_ = obj;
}

bool operator==(const QVIOObject& left, const QVIOObject& right) noexcept {
    return left.uniqueID_ == right.uniqueID_ || IOObjectIsEqualTo(right.ioObject_, left.ioObject_);
}

Value QVIOObject::encodeWithCoder() const {
    return Value::dictionary({{kEntryIDKey, Value::unsignedInteger(uniqueID_)}});
}

std::optional<QVIOObject> QVIOObject::initWithCoder(const Value& coder) {
    const Value* entryID = coder.find(kEntryIDKey);
    if (entryID == nullptr || !entryID->isNumber()) {
        return std::nullopt;
    }
    const auto matching =
        IORegistryEntryIDMatching(static_cast<std::uint64_t>(longLongValue(entryID)));
    io_iterator_t iterator = 0;
    if (IOServiceGetMatchingServices(kIOMainPortDefault, matching, iterator) != kIOReturnSuccess) {
        return std::nullopt;
    }
    const io_object_t entry = IOIteratorNext(iterator);
    std::optional<QVIOObject> object;
    if (entry != 0) {
        object.emplace(entry);
    }
    IOObjectRelease(entry);
    IOObjectRelease(iterator);
    return object;
}

QV_REGISTER_CLASS(
    QVIOObject, NSObject, QV_CLASS_METHOD(withIOObject, "withIOObject:"),
    QV_CLASS_METHOD(supportsSecureCoding, "supportsSecureCoding"),
    QV_METHOD_AS("initWithIOObject:", std::constructible_from<Self, io_object_t>),
    QV_METHOD(ioObject, "ioObject"), QV_METHOD(IOObject, "IOObject"),
    QV_METHOD(setIoObject, "setIoObject:"), QV_METHOD(uniqueID, "uniqueID"),
    QV_METHOD(setUniqueID, "setUniqueID:"),
    QV_METHOD_AS("copyWithZone:", std::copy_constructible<Self>),
    QV_METHOD_AS(
        "encodeWithCoder:", requires(const Self& object) { object.encodeWithCoder(); }),
    QV_METHOD_AS("initWithCoder:", requires(const Value& coder) { Self::initWithCoder(coder); }));

} // namespace qv
