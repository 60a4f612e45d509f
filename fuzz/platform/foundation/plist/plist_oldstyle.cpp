// Arbitrary bytes as an old-style property list.

#include "platform/foundation/plist/OldStyleReader.h"
#include "platform/foundation/values/UTF8.h"

#include "RoundTrip.h"
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(data, data + size);
    text.resize(qv::validUTF8Length(text));
    const auto root = qv::plist::readOldStyle(text, {});
    if (!root) {
        qv::fuzz::requireOwn(root.error());
        return 0;
    }
    qv::fuzz::requireRoundTrip(*root, qv::PropertyListFormat::binary);
    qv::fuzz::requireRoundTrip(*root, qv::PropertyListFormat::xml);
    return 0;
}
