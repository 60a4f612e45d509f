// Arbitrary bytes as a keyed archive: a refusal says why, and a tree that is read is written so
// that it reads back as the same.

#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/foundation/archive/KeyedUnarchiver.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kLongest = 65536;

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > kLongest) {
        return 0;
    }
    const std::string text(data, data + size);
    const auto value = qv::KeyedUnarchiver::unarchiveObjectWithData(text);
    if (!value) {
        require(value.error().code() == qv::cocoa_error::kCoderReadCorrupt &&
                value.error().userInfo().find(qv::error_key::kDebugDescription) != nullptr);
        return 0;
    }
    const auto written = qv::KeyedArchiver::archivedDataWithRootObject(*value);
    require(written.has_value());
    const auto again = qv::KeyedUnarchiver::unarchiveObjectWithData(*written);
    require(again.has_value());
    // The two agree to the byte: unlike equality this tells booleans from numbers, and knows
    // not-a-number again.
    require(qv::KeyedArchiver::archivedDataWithRootObject(*again) == written);
    // A value with a not-a-number in it equals nothing.
    require(*again == *value || !(*qv::KeyedUnarchiver::unarchiveObjectWithData(text) == *value));
    return 0;
}
