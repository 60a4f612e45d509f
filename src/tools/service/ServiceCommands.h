#pragma once

#include "tools/terminal/Result.h"

#include <cstddef>
#include <optional>
#include <string>

namespace qv::tools {

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

} // namespace qv::tools
