#include "platform/accessibility/TrustStore.h"
#include "platform/foundation/log/Log.h"
#include "tools/clients/ClientCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <climits>
#include <ctime>

namespace qv::tools {

namespace {

std::string shown(std::string_view path) { return log::foreign(path, PATH_MAX); }

std::string timeText(std::int64_t seconds) {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

std::string digestText(const SHA256Digest& digest) {
    return fmt::format("{:02x}", fmt::join(digest, ""));
}

Value jsonOf(const std::string& path, const TrustedProgram& program) {
    return Value::dictionary(
        {{"path", Value::string(path)},
         {"sha256", Value::string(digestText(program.digest))},
         {"granted", Value::string(timeText(program.granted))},
         {"requester", program.requester ? Value::unsignedInteger(*program.requester) : Value()}});
}

tl::unexpected<Failure> unknown(const Error& error) {
    return failure(ExitStatus::usage, reasonOf(error));
}

} // namespace

Result trustList(const TrustListOptions& options) {
    const auto programs = TrustStore().list();
    if (!programs) {
        return unknown(programs.error());
    }
    Terminal& out = Terminal::standardOutput();
    std::vector<Value> json;
    for (const auto& [path, program] : *programs) {
        if (options.json) {
            json.push_back(jsonOf(path, program));
            continue;
        }
        out.line(shown(path));
        out.line(fmt::format("  granted {}{}, sha256 {}", timeText(program.granted),
                             program.requester ? fmt::format(" for user {}", *program.requester)
                                               : std::string(),
                             digestText(program.digest)));
    }
    if (options.json) {
        out.line(jsonText(Value::array(std::move(json))));
    }
    return ExitStatus::success;
}

Result trustCheck(const TrustCheckOptions& options) {
    if (options.path.empty() != options.pid.has_value()) {
        return failure(ExitStatus::usage, "trust check: name a PATH or a process with --pid");
    }
    const TrustStore store;
    const auto verdict = options.pid ? store.checkProcess(*options.pid) : store.check(options.path);
    if (!verdict) {
        return unknown(verdict.error());
    }
    const bool trusted = verdict->isTrusted;
    std::string what = options.pid ? fmt::format("process {}", *options.pid) : std::string();
    if (!verdict->path.empty()) {
        what += options.pid ? fmt::format(" ({})", shown(verdict->path)) : shown(verdict->path);
    }
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(jsonText(Value::dictionary({{"path", Value::string(verdict->path)},
                                             {"trusted", Value::boolean(trusted)},
                                             {"reason", Value::string(verdict->reason)}})));
        return trusted ? ExitStatus::success : ExitStatus::failed;
    }
    out.line(fmt::format(
        "{}: {}", what,
        out.styled(trusted ? "trusted" : fmt::format("not trusted: {}", verdict->reason),
                   trusted ? Terminal::Style::good : Terminal::Style::bad)));
    return trusted ? ExitStatus::success : ExitStatus::failed;
}

Result trustRevoke(const TrustRevokeOptions& options) {
    const auto revoked = TrustStore().revoke(options.path);
    if (!revoked) {
        return failure(ExitStatus::failed, reasonOf(revoked.error()));
    }
    if (!*revoked) {
        return failure(ExitStatus::failed,
                       fmt::format("{}: no trust was granted to it", shown(options.path)));
    }
    Terminal::standardOutput().line(
        options.json ? jsonText(Value::dictionary({{"revoked", Value::string(options.path)}}))
                     : fmt::format("{}: trust revoked", shown(options.path)));
    return ExitStatus::success;
}

} // namespace qv::tools
