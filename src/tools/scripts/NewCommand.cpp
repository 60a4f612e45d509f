#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/values/Value.h"
#include "tools/scripts/FirstScript.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace qv::tools {

namespace {

// The example, with the place of this installation's schema.
std::string firstScript() {
    constexpr std::string_view kPlace = "file:///usr/share/qvcatalog/script.schema.json";
    std::string text(kFirstScript);
    if (const std::size_t place = text.find(kPlace); place != std::string::npos) {
        text.replace(place, kPlace.size(), schemaURL());
    }
    return text;
}

// 0 or the errno; a failure leaves no file.
int writeNewFile(const std::string& file, std::string_view text) {
    const Descriptor opened(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!opened) {
        return errno;
    }
    const int error = writeAll(opened.get(), text);
    if (error != 0) {
        ::unlink(file.c_str());
    }
    return error;
}

} // namespace

Result newScript(const NewOptions& options) {
    Terminal& out = Terminal::standardOutput();
    const std::string text = firstScript();
    if (options.file.empty()) {
        out.write(options.json ? jsonText(Value::dictionary({{"text", Value::string(text)}})) + "\n"
                               : text);
        return ExitStatus::success;
    }
    const int error = writeNewFile(options.file, text);
    if (error == EEXIST) {
        return failure(ExitStatus::usage,
                       fmt::format("{}: there is such a file, which stays as it is", options.file));
    }
    if (error != 0) {
        return fileFailure(ExitStatus::usage, options.file, Error::posix(error));
    }
    if (options.json) {
        out.line(jsonText(Value::dictionary({{"file", Value::string(options.file)}})));
    } else {
        out.line(fmt::format("{0}: written. Next: qvcatalog lint {0}, qvcatalog plan {0}, and as "
                             "root qvcatalog run {0}",
                             options.file));
    }
    return ExitStatus::success;
}

} // namespace qv::tools
