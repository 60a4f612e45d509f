#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/FileBytes.h"
#include "tools/CommandLine.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <span>
#include <unistd.h>

namespace {

using namespace qv::tools; // NOLINT(google-build-using-namespace): the commands are all that is
                           // here

using qv::Value;

int report(const Result& result, bool json) {
    ExitStatus status = result ? *result : result.error().status;
    Terminal& out = Terminal::standardOutput();
    if (!result && json) {
        std::vector<std::pair<Value, Value>> object = {
            {Value::string("error"), Value::string(result.error().reason)},
            {Value::string("exitStatus"), Value::integer(static_cast<int>(status))}};
        if (const auto code = result.error().code) {
            object.emplace_back(Value::string("status"), Value::integer(*code));
        }
        out.line(jsonText(Value::dictionary(std::move(object)), true));
    }
    if (!result && (!json || out.error() != 0)) {
        complain(result.error().reason);
        if (const auto& excerpt = result.error().excerpt) {
            complainAtPlace(excerpt->first, excerpt->second);
        }
    }
    if (out.error() != 0) {
        complain(fmt::format("standard output: {}", qv::errnoText(out.error())));
        status = ExitStatus::usage;
    }
    return static_cast<int>(status);
}

// A file or socket must not take the number of a standard descriptor that the caller has closed:
// output would go there. In its place stands one that cannot be used either.
void occupyClosedDescriptors() {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        const int useless = number == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (::fcntl(number, F_GETFD) < 0) {
            static_cast<void>(::open("/dev/null", useless | O_CLOEXEC));
        }
    }
}

} // namespace

int main(int count, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): cannot fail for this signal
    occupyClosedDescriptors();
    qv::log::open("qvcatalog", qv::log::Destination::nowhere);
    const bool json = std::ranges::any_of(std::span(arguments, static_cast<std::size_t>(count)),
                                          [](std::string_view word) { return word == "--json"; });
    try {
        return report(parseAndRun(count, arguments), json);
    } catch (const std::exception& exception) {
        return report(failure(ExitStatus::failed, exception.what()), json);
    }
}
