// Arbitrary text as each of the process files: the values taken from it stand in it, and a refusal
// tells why.

#include "platform/foundation/os/ProcessText.h"

#include <cstdlib>
#include <string>
#include <tuple>

namespace {

constexpr std::size_t kLongest = 65536;

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

template <typename T> bool isRead(const tl::expected<T, std::string>& result) {
    require(result || !result.error().empty());
    return result.has_value();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size > kLongest) {
        return 0;
    }
    const std::string text(data, data + size);
    if (const auto mappings = qv::parseExecutableMappings(text); isRead(mappings)) {
        for (const qv::ExecutableMapping& mapping : *mappings) {
            require(mapping.start < mapping.end && text.find(mapping.name) != std::string::npos);
        }
    }
    std::ignore = isRead(qv::parseProcessStatus(text));
    std::ignore = isRead(qv::parsePidfdInfo(text));
    std::ignore = isRead(qv::parseStartTime(text));
    if (const auto found = qv::fileSystemOfMount(text, 27); isRead(found)) {
        const std::string type = found->value_or(qv::MountedFileSystem()).type;
        require(type.empty() != found->has_value() && text.find(type) != std::string::npos);
    }
    return 0;
}
