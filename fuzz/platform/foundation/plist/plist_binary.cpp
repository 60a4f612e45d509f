// Arbitrary bytes as a binary property list.

#include "platform/foundation/plist/BinaryReader.h"

#include "RoundTrip.h"
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string list(data, data + size); // of its own, so that a read beyond it is seen
    const auto root = qv::plist::readBinary(list, {});
    if (!root) {
        qv::fuzz::requireOwn(root.error());
        return 0;
    }
    qv::fuzz::requireRoundTrip(*root, qv::PropertyListFormat::binary);
    // A short list may stand for endless text.
    (void)qv::PropertyList::dataWithPropertyList(*root, qv::PropertyListFormat::xml);
    return 0;
}
