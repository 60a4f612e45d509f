// Any property list as a matching dictionary: it finds services of a small tree, each of which it
// finds alone too, or nothing; the handles are the same afterwards.

#include "platform/foundation/plist/PropertyList.h"
#include "platform/iokit/IOKit.h"

#include "SmallTree.h"
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const SmallTree kTree;
    static const qv::RegistryReplacement kRegistry(kTree.places());
    const auto list = qv::PropertyList::propertyListWithData(std::string(data, data + size));
    if (!list) {
        return 0;
    }
    const auto before = kRegistry.size();
    qv::io_iterator_t iterator = 0;
    const bool found =
        qv::IOServiceGetMatchingServices(0, list->root, iterator) == qv::kIOReturnSuccess;
    const qv::io_service_t one = qv::IOServiceGetMatchingService(0, list->root);
    const qv::io_service_t first = qv::IOIteratorNext(iterator);
    if (found != list->root.is(qv::Value::Kind::dictionary) || one != first) {
        std::abort();
    }
    qv::IOObjectRelease(one);
    qv::IOObjectRelease(first);
    qv::IOObjectRelease(iterator);
    if (kRegistry.size().handles != before.handles) {
        std::abort();
    }
    return 0;
}
