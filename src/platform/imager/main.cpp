#include "platform/foundation/configuration/ProgramVersion.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/imager/Imager.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace {

int tell(std::string_view text) {
    fmt::print(stderr, "QVCatalogImager: {}\n", text);
    return EXIT_FAILURE;
}

int report(const std::string& item, const qv::Error& error) {
    constexpr std::size_t kLongest = 4096;
    return error ? tell(qv::log::foreign(fmt::format("{}: {}", item, error.localizedDescription()),
                                         kLongest))
                 : EXIT_SUCCESS;
}

} // namespace

// Attaches and detaches disk images. Status 0, or 1 and a line on standard error.
int main(int count, char** arguments) {
    if (qv::configuration::toldVersion("QVCatalogImager", count, arguments)) {
        return EXIT_SUCCESS;
    }
    using std::string_view_literals::operator""sv;
    constexpr std::array kAttach = {"attach"sv, "-quiet"sv, "-nobrowse"sv, "-mountpoint"sv};
    constexpr std::array kDetach = {"detach"sv, "-force"sv};
    const std::span words(arguments + 1, static_cast<std::size_t>(std::max(count, 1)) - 1);
    const auto begins = [&](std::span<const std::string_view> with, std::size_t further) {
        return words.size() == with.size() + further &&
               std::ranges::equal(with, words.first(with.size()));
    };
    try {
        if (begins(kAttach, 2)) {
            const std::string image = std::filesystem::absolute(words[kAttach.size() + 1]);
            qv::sanitizeProcess();
            return report(image, qv::imager::attach(image, words[kAttach.size()]));
        }
        if (begins(kDetach, 1)) {
            qv::sanitizeProcess();
            const std::string mountPoint = words[kDetach.size()];
            return report(mountPoint, qv::imager::detach(mountPoint));
        }
    } catch (const std::exception& exception) {
        return tell(exception.what());
    }
    return tell("usage: attach -quiet -nobrowse -mountpoint FOLDER IMAGE | detach -force FOLDER");
}
