#include "platform/foundation/files/TemporaryName.h"

#include <fmt/format.h>

#include <random>

namespace qv {

std::string temporaryName() {
    std::random_device random;
    return fmt::format(".qv-{:08x}{:08x}", random(), random());
}

} // namespace qv
