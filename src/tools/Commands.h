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

struct CommandDescription;

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
    {ExitStatus::cancelled, "run was interrupted; what was sent is carried out all the same"},
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

struct RunOptions {
    std::string file; ///< "-" for standard input
    std::string socketPath;
    bool json = false;
    bool strict = false;             ///< a script with mistakes is not sent
    bool noLint = false;             ///< mistakes are not looked for
    std::optional<double> timeout;   ///< in seconds; none: as long as the script takes
    std::string* recordID = nullptr; ///< if not null: gets the run's ID; empty: it has no record
};
/// Sends a script and shows how it went. With `json` it prints a line of JSON for each of: the
/// version of this format, the mistakes that were found, each step, the outcome.
Result run(const RunOptions& options);

struct LogOptions {
    std::string run; ///< its ID, or how that begins; empty: list the runs
    std::string client;
    std::string user;    ///< name or number
    std::string since;   ///< a date, or how long ago
    std::string item;    ///< a path: runs that touched it or what is in it
    std::string journal; ///< folder of journal files; empty: this machine's
    std::size_t last = 20;
    bool all = false;
    bool failed = false;
    bool json = false;
    bool jsonOnOneLine = false;
};
/// Prints the past runs, or one of them with its steps.
Result showLog(const LogOptions& options);

struct StatusOptions {
    std::string journal; ///< as in LogOptions
    bool json = false;
};
/// Prints what runs now, for whom and since when, and who else is connected.
Result status(const StatusOptions& options);

struct DoctorOptions {
    bool json = false;
};
/// Looks at all that the service needs, and prints a line for each; `failed` if something keeps it
/// from working.
Result doctor(const DoctorOptions& options);

struct BuildOptions {
    std::string file;
    std::string to = "xml"; ///< or binary
    std::string output;     ///< empty: standard output
    bool json = false;      ///< print the exact steps, or with an output what was done, as JSON
};
/// Writes the exact steps of a script; `faulty` for one that cannot be built.
Result build(const BuildOptions& options);

struct ShowOptions {
    std::string file;
    std::string output;     ///< empty: standard output
    bool names = false;     ///< of users and groups, not their numbers
    bool keepTexts = false; ///< of an old-style list, which has texts for numbers
    bool json = false;      ///< the faults of a script that cannot be built
};
/// Writes a script as people write it.
Result show(const ShowOptions& options);

/// Prints the JSON Schema of scripts.
Result schema();
/// Where an installation has it.
std::string schemaURL();

struct NewOptions {
    std::string file; ///< must not exist; empty: standard output
    bool json = false;
};
/// Writes a first script.
Result newScript(const NewOptions& options);
struct LintCommandOptions {
    std::vector<std::string> files; ///< "-" for standard input
    std::vector<std::string> allow; ///< names of checks that do not count
    bool strict = false;            ///< warnings count as errors do
    bool json = false;
};
/// Prints the mistakes in scripts; `faulty` if there are any that count.
Result lintScripts(const LintCommandOptions& options);
struct PlanCommandOptions {
    std::string file; ///< "-" for standard input
    std::string root; ///< of a copy of another machine's files; empty: this machine
    bool diff = false;
    bool all = false; ///< every item that changes, not the first few of a step
    bool json = false;
    bool jsonOnOneLine = false;
};
/// Prints what a script would do. `success`: nothing; `changes`: something; `failed`: it stops.
Result plan(const PlanCommandOptions& options);

struct SetupOptions {
    bool remove = false;    ///< take it away, and keep packages from bringing it back
    bool byPackage = false; ///< heed what the administrator has said, and say nothing for him
    bool json = false;
};
/// Lets root use `run` and `demo` on this machine.
Result setup(const SetupOptions& options);

struct DemoOptions {
    std::string socketPath;
    bool keep = false; ///< its folder
    bool json = false; ///< a value a line
};
/// Has a harmless script carried out and shows all that there is to see of it. The status is that
/// of the run.
Result demo(const DemoOptions& options);

struct SignOptions {
    std::string file;
    std::string identifier;
    std::string team;
    std::string certificate;
    std::string key;
    std::vector<std::string> intermediates;
    std::vector<std::string> flags; ///< hard, kill, runtime, restrict, library-validation, expires
    std::string entitlements;       ///< property-list file
    std::string info;               ///< property-list file
    std::uint32_t platform = 0;
    bool json = false;
};
Result sign(const SignOptions& options);

struct InstallClientOptions {
    std::string file;
    std::string destination; ///< empty: `file` is replaced
    bool json = false;
};
Result installClient(const InstallClientOptions& options);

struct VerifyOptions {
    std::string file;
    std::optional<int> pid;
    std::string requirement; ///< empty: the one that the service demands
    bool explain = false;
    bool json = false;
};
Result verify(const VerifyOptions& options);

struct ClientsOptions {
    std::vector<std::string> folders; ///< to look for installed clients in; empty: the usual ones
    std::string configuration;        ///< a folder like /etc/qvcatalog instead of it; empty: none
    bool json = false;
};
/// `failed` where the anchors or the allowed clients are at fault.
Result clients(const ClientsOptions& options);

struct PlistOptions {
    std::string file;
    std::string to; ///< xml, binary or json; empty: only validate
    std::string output;
    bool archive = false;
    bool json = false; ///< the answer to the question whether it is valid
};
Result plist(const PlistOptions& options);

struct PreferencesOptions {
    std::string domain;
    std::optional<std::string> key;
    std::string user;         ///< a name or "any"; empty: the current one
    std::string host = "any"; ///< "any", "current" or a name
    bool json = false;
};
Result readPreferences(const PreferencesOptions& options);

struct RequirementOptions {
    std::string text;
    bool json = false;
};
Result requirement(const RequirementOptions& options);

struct RuleOptions {
    std::string rule;                  ///< "-" for standard input; empty when `value` is given
    std::string value;                 ///< a single call or key path
    std::vector<std::string> settings; ///< NAME=VALUE
    std::string root; ///< of a copy of another machine's files; empty: this machine
    bool explain = false;
    bool json = false;
};
Result rule(const RuleOptions& options);

struct FactsOptions {
    std::vector<std::string> words; ///< questions with one of these in them; empty: all
    std::string root;               ///< as in RuleOptions
    bool native = false;            ///< also the kernel's own parameters
    bool json = false;
};
/// Prints what rules can ask of a machine, with the answers; `failed` if no question fits.
Result facts(const FactsOptions& options);

struct RegistryOptions {
    std::optional<std::string> device; ///< none: list the devices
    std::string className;
    std::vector<std::string> properties; ///< NAME or NAME=VALUE that a device has to have
    std::string plane = "IOService";
    std::string sysfs; ///< a copy of another machine's; empty: this machine
    bool showProperties = false;
    bool watch = false;
    bool json = false;
};
/// Prints the devices, follows them until a signal ends it, or prints how a rule asks for one.
Result registry(const RegistryOptions& options);

struct ApplicationOptions {
    std::string identifier; ///< empty when `name` is given
    std::string name;
    std::string user; ///< look as the service does for this user; empty: as the caller
    bool json = false;
};
/// Prints where an application is.
Result application(const ApplicationOptions& options);

struct ExtractOptions {
    std::string file; ///< a ZIP archive or a disk image, by its extension
    std::string to;   ///< the folder for its content; empty: a fresh one on the file's volume
    bool json = false;
};
/// Unpacks an archive or an image, and prints the folder that holds the content.
Result extract(const ExtractOptions& options);

struct ScriptOptions {
    std::string file;   ///< of AppleScript; "-" for standard input
    bool check = false; ///< compile it only
    bool json = false;
};
/// Compiles and executes a program in AppleScript, and prints its result.
Result script(const ScriptOptions& options);

struct FindBundleOptions {
    std::string identifier;
    std::string folder;
    bool json = false;
};
/// Prints where in a folder a bundle is.
Result findBundle(const FindBundleOptions& options);

struct VersionOptions {
    std::string version;
    std::string other;
    bool json = false;
};
/// Prints -1, 0 or 1: the first version is the older one, the same, the newer one.
Result version(const VersionOptions& options);

// The programs that were granted trust.

struct TrustListOptions {
    bool json = false;
};
Result trustList(const TrustListOptions& options);

struct TrustCheckOptions {
    std::string path;
    std::optional<int> pid;
    bool json = false;
};
Result trustCheck(const TrustCheckOptions& options);

struct TrustRevokeOptions {
    std::string path;
    bool json = false;
};
Result trustRevoke(const TrustRevokeOptions& options);

struct DescribeOptions {
    std::string format; ///< man, operations, bash, fish or zsh
    std::string date;   ///< of the manual page
};
/// Prints the manual page of the command itself, the operations for that of scripts, or a shell's
/// completion.
Result describe(const DescribeOptions& options, const CommandDescription& program);

} // namespace qv::tools
