// Any bytes as the text behind a property, by every conversion: strings are UTF-8, and numbers that
// come from one byte order keep to their width.

#include "platform/foundation/values/UTF8.h"
#include "platform/iokit/PropertyTable.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string text(data, data + size);
    for (int family = 0; family <= static_cast<int>(qv::DeviceFamily::cpu); ++family) {
        for (const auto& row : qv::propertyRows(static_cast<qv::DeviceFamily>(family))) {
            const auto value = row.convert == nullptr ? std::nullopt : row.convert(text);
            if (value && value->is(qv::Value::Kind::string) && !qv::isUTF8(value->asString())) {
                std::abort();
            }
        }
    }
    const std::size_t half = size / 2;
    const auto location = qv::conversion::usbLocation(text.substr(0, half), text.substr(half));
    if (location && (*location < 0 || *location > UINT32_MAX)) {
        std::abort();
    }
    static_cast<void>(qv::conversion::plain(text));
    return 0;
}
