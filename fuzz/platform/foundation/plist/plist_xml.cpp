// Arbitrary bytes as text of any character encoding, then as XML; and the scanner of plain markup
// against expat: what it reads, expat must read as the same.

#include "platform/foundation/plist/TextEncoding.h"
#include "platform/foundation/plist/XMLReader.h"

#include "RoundTrip.h"
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    const auto text = qv::plist::decodeText(bytes);
    if (!text) {
        qv::fuzz::requireOwn(text.error());
        return 0;
    }
    const auto plain = qv::plist::readPlainXML(text->view(), {});
    const auto root = qv::plist::readAnyXML(text->view(), {});
    if (!root) {
        qv::fuzz::require(!plain);
        qv::fuzz::requireOwn(root.error());
        return 0;
    }
    constexpr auto kBinary = qv::PropertyListFormat::binary;
    qv::fuzz::requireRoundTrip(*root, kBinary);
    qv::fuzz::requireRoundTrip(*root, qv::PropertyListFormat::xml);
    qv::fuzz::require(!plain || qv::PropertyList::dataWithPropertyList(*plain, kBinary) ==
                                    qv::PropertyList::dataWithPropertyList(*root, kBinary));
    return 0;
}
