#include "platform/foundation/os/TemporaryName.h"

#include <fmt/core.h>

#include <random>

namespace qv {

namespace {

constexpr std::string_view kPrefix = ".qv-";

} // namespace

std::string temporaryName() {
    std::random_device random;
    return fmt::format("{}{:08x}{:08x}", kPrefix, random(), random());
}

bool isTemporaryName(std::string_view name) {
    constexpr std::size_t kDigits = 16;
    return name.starts_with(kPrefix) && name.size() == kPrefix.size() + kDigits &&
           name.find_first_not_of("0123456789abcdef", kPrefix.size()) == std::string_view::npos;
}

} // namespace qv
