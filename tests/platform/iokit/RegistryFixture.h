#pragma once

#include "platform/iokit/IOKit.h"
#include "platform/iokit/IONotificationPort.h"
#include "support/DeviceTree.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qv::test {

/// A reference to one object.
class Held {
public:
    explicit Held(io_object_t object) : object_(object) {}
    Held(Held&& other) noexcept : object_(std::exchange(other.object_, 0)) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    Held& operator=(Held&&) = delete;
    ~Held() { IOObjectRelease(object_); }
    operator io_object_t() const { return object_; } // NOLINT: it is one

private:
    io_object_t object_;
};

[[nodiscard]] inline std::string nameOf(io_object_t entry) {
    std::string name;
    return IORegistryEntryGetName(entry, name) == 0 ? name : "?";
}

/// The names that are left in an iterator, between blanks.
inline std::string drain(io_iterator_t iterator) {
    std::string names;
    while (const io_object_t next = IOIteratorNext(iterator)) {
        names += (names.empty() ? "" : " ") + nameOf(next);
        IOObjectRelease(next);
    }
    return names;
}

[[nodiscard]] inline std::string namesOfMatching(const Value& matching) {
    io_iterator_t iterator = 0;
    EXPECT_EQ(IOServiceGetMatchingServices(kIOMainPortDefault, matching, iterator), 0);
    const Held held(iterator);
    return drain(iterator);
}

[[nodiscard]] inline Held serviceNamed(std::string_view name) {
    return Held(IOServiceGetMatchingService(kIOMainPortDefault, IOServiceNameMatching(name)));
}

[[nodiscard]] inline std::string pathOf(io_object_t entry) {
    std::string path;
    return IORegistryEntryGetPath(entry, kIOServicePlane, path) == 0 ? path : "none";
}

/// A registry of recorded devices.
class RecordedRegistry : public ::testing::Test {
protected:
    RecordedRegistry() {
        tree.load(contentOf(QV_IOKIT_TESTS "/devices.txt"));
        tree.setMachineID("00112233445566778899aabbccddeeff\n");
    }
    DeviceTree tree;
    RegistryReplacement registry{tree.places()};
};

} // namespace qv::test
