#include "platform/archiver/Unpacking.h"
#include "platform/foundation/configuration/ProgramVersion.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/ProcessState.h"

#include <fmt/core.h>

#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <unistd.h>

// QVCatalogArchiver -kx - FOLDER: unpacks the ZIP archive on standard input into the folder. Exits
// with 0, or with 1 and a line on standard error that names the entry and the cause.
int main(int count, char** words) {
    if (qv::configuration::toldVersion("QVCatalogArchiver", count, words)) {
        return EXIT_SUCCESS;
    }
    qv::sanitizeProcess();
    // Close every other descriptor that it was started with.
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    qv::log::open("QVCatalogArchiver", qv::log::Destination::standardError);
    const std::span arguments(words, static_cast<std::size_t>(count));
    constexpr std::size_t kWords = 4;
    std::string cause = "usage: QVCatalogArchiver -kx - FOLDER";
    if (arguments.size() == kWords && std::string_view(arguments[1]) == "-kx" &&
        std::string_view(arguments[2]) == "-") {
        cause = qv::archiver::unpack(STDIN_FILENO, arguments[3]);
    }
    if (!cause.empty()) {
        qv::log::write(qv::log::Priority::error, cause);
    }
    // This exit skips the exit handlers of libraries: the rights that they might need are gone.
    ::_exit(cause.empty() ? EXIT_SUCCESS : EXIT_FAILURE);
}
