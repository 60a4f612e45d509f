#pragma once

#include <tl/expected.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::tools {

/// The exit status of `qvcatalog`, the same for every command.
enum class ExitStatus : std::uint8_t {
    success = 0,
    failed = 1,
    usage = 2,
    faulty = 3,
    notAuthorised = 4,
    unreachable = 5,
    timedOut = 6,
    cancelled = 7,
    changes = 10,
};

struct ExitStatusMeaning {
    ExitStatus status;
    std::string_view meaning;
};
/// The meaning of each status as users are told it, by the help, the manual page and
/// docs/command.md.
inline constexpr std::array kExitStatusMeanings = std::to_array<ExitStatusMeaning>({
    {ExitStatus::success, "done, or the answer is yes"},
    {ExitStatus::failed,
     "carried out and failed, or the answer is no: a rule that is false, a program that would not "
     "be accepted, a list or requirement with a fault, an application or value that is not there"},
    {ExitStatus::usage,
     "no answer: wrong arguments, a script or rule that cannot be understood, a file that cannot "
     "be read or written (standard output is one)"},
    {ExitStatus::faulty, "a script has a mistake and is not sent"},
    {ExitStatus::notAuthorised,
     "the service refuses this program, or run in an installed system was not started by root"},
    {ExitStatus::unreachable, "the service cannot be reached, or the connection broke"},
    {ExitStatus::timedOut, "run waited as long as it was told to, and the service did not answer"},
    {ExitStatus::cancelled,
     "run was interrupted; the script that was sent is carried out all the same"},
    {ExitStatus::changes, "a plan that changes something"},
});

/// The reason for which a command has no answer, in one line. With --json it is printed as an
/// object on one line: "error" is the reason, "exitStatus" the status, "status" the code of a
/// platform's error, if there is one.
struct Failure {
    ExitStatus status;
    std::string reason;
    std::optional<std::int64_t> code = std::nullopt;
    /// The part of a text around a fault and the fault's offset in it, for people.
    std::optional<std::pair<std::string, std::size_t>> excerpt = std::nullopt;
};

/// A command prints its answer, yes or no, and returns the status. It prints nothing if it fails.
using Result = tl::expected<ExitStatus, Failure>;

[[nodiscard]] inline tl::unexpected<Failure>
failure(ExitStatus status, std::string reason, std::optional<std::int64_t> code = std::nullopt) {
    return tl::unexpected(Failure{status, std::move(reason), code});
}

} // namespace qv::tools
