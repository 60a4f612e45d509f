#include "ioregistry/ServiceSupport.h"

#include "platform/iokit/IOKit.h"

#include <system_error>
#include <utility>

namespace qv {

std::vector<std::shared_ptr<QVIOService>> takeServices(io_iterator_t iterator) {
    std::vector<std::shared_ptr<QVIOService>> services;
    while (const io_service_t entry = IOIteratorNext(iterator)) {
        if (auto service = QVIOService::serviceWithIOService(entry)) {
            services.push_back(std::move(service));
        }
        IOObjectRelease(entry);
    }
    IOObjectRelease(iterator);
    return services;
}

bool addToCurrentRunLoop(RunLoopSource& source) {
    try {
        return source.addTo(RunLoop::current());
    } catch (const std::system_error&) { // no descriptors are left
        return false;
    }
}

} // namespace qv
