// Arbitrary bytes as a property list of any encoding: a refusal is the reader's own error, and what
// is read is written in binary so that it reads back as the same.

#include "platform/foundation/plist/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const auto list = qv::PropertyList::propertyListWithData(text);
    if (!list) {
        require(list.error().domain() == qv::error_domain::kCocoa && list.error().code() == 3840);
        return 0;
    }
    const auto written =
        qv::PropertyList::dataWithPropertyList(list->root, qv::PropertyListFormat::binary);
    require(written.has_value());
    const auto again = qv::PropertyList::propertyListWithData(*written);
    require(again.has_value());
    // To the byte: a not-a-number equals nothing.
    require(qv::PropertyList::dataWithPropertyList(again->root, qv::PropertyListFormat::binary) ==
            written);
    return 0;
}
