// Arbitrary bytes as a resource fork, and as an AppleDouble file with one: nothing, or a part of
// them.

#include "platform/workspace/applications/ResourceFork.h"

#include <cstdlib>

namespace {

void requirePart(std::string_view part, std::string_view whole) {
    if (part.data() < whole.data() || part.data() + part.size() > whole.data() + whole.size()) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string bytes(data, data + size);
    if (const auto resource = qv::firstResource(bytes, "plst")) {
        requirePart(*resource, bytes);
    }
    if (const auto fork = qv::forkInAppleDouble(bytes)) {
        requirePart(*fork, bytes);
        if (const auto resource = qv::firstResource(*fork, "plst")) {
            requirePart(*resource, *fork);
        }
    }
    return 0;
}
