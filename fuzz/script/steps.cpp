// Arbitrary property lists as scripts, replayed by a script that records: every record is read, its
// arguments are converted, and nothing is carried out. It ends with a result or an Exception. First
// mistakes are looked for, which always ends with findings.

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Exception.h"
#include "script/QVCatalogScript.h"
#include "script/review/lint/Lint.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto list = qv::PropertyList::propertyListWithData(std::string(data, data + size));
    if (!list) {
        return 0;
    }
    static_cast<void>(qv::lint(list->root));
    qv::QVCatalogScript script;
    script.beginRecording(); // operations append records and do nothing else
    qv::Error error;
    const qv::Value* step = nullptr;
    try {
        static_cast<void>(script.executeRecording(list->root, &error, &step));
    } catch (const qv::Exception&) {
        return 0;
    }
    static_cast<void>(script.endRecording());
    return 0;
}
