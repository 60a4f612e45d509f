#include "platform/foundation/configuration/ProgramVersion.h"

#include "platform/foundation/configuration/Configuration.h"

#include <cstdio>
#include <span>

namespace qv::configuration {

bool toldVersion(std::string_view name, int count, const char* const* arguments) {
    const std::span words(arguments, count > 0 ? static_cast<std::size_t>(count) : 0);
    if (words.size() != 2 || std::string_view(words[1]) != "--version") {
        return false;
    }
    std::printf("%.*s %.*s\n", static_cast<int>(name.size()), name.data(),
                static_cast<int>(kVersion.size()), kVersion.data());
    return true;
}

} // namespace qv::configuration
