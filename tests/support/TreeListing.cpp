#include "support/TreeListing.h"

#include <array>
#include <cstdio>
#include <memory>

namespace qv::test {

std::string listingOf(const std::filesystem::path& root) {
    const std::string command = "cd '" + root.native() +
                                "' && find . \\( -type d -printf '%p %y %m %U:%G %T@\\n' \\) -o "
                                "-printf '%p %y %m %U:%G %s %n %T@ %l\\n' | LC_ALL=C sort";
    // NOLINTNEXTLINE(cert-env33-c): a fixed command on a folder of ours
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string text;
    std::array<char, 65536> buffer{};
    for (std::size_t count = 1; pipe && count > 0;) {
        count = std::fread(buffer.data(), 1, buffer.size(), pipe.get());
        text.append(buffer.data(), count);
    }
    return text;
}

} // namespace qv::test
