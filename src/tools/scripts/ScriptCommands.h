#pragma once

#include "tools/terminal/Result.h"

#include <string>
#include <vector>

namespace qv::tools {

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
/// The URL of the schema in an installation.
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

struct PlistOptions {
    std::string file;
    std::string to; ///< xml, binary or json; empty: only validate
    std::string output;
    bool archive = false;
    bool json = false; ///< the answer to the question whether it is valid
};
Result plist(const PlistOptions& options);

struct ScriptOptions {
    std::string file;   ///< of AppleScript; "-" for standard input
    bool check = false; ///< compile it only
    bool json = false;
};
/// Compiles and executes a program in AppleScript, and prints its result.
Result script(const ScriptOptions& options);

} // namespace qv::tools
