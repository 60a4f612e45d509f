#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/security/guest/GuestFlags.h"
#include "platform/security/requirement/CodeFacts.h"
#include "platform/security/requirement/Requirement.h"

#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace qv {

class GuestCode;
class StaticCode;
struct CodeSigningConfiguration;

// A report for a person who asks why a program is accepted or refused. Everything that comes from
// outside is escaped.

struct ReportFact {
    std::string name;
    std::string text;
    // NOLINTNEXTLINE(readability-redundant-member-init): GCC misses it in initializers
    std::string remedy = {}; ///< the change that would help; empty: nothing
};

struct CodeReport {
    std::vector<ReportFact> identity; ///< the program, and its flags in one number
    std::vector<ReportFact> facts;    ///< the basis of the judgement
    std::vector<FlagFinding> flags;
    std::vector<RequirementFinding> conditions; ///< of the requirement
    Error failure; ///< of the validity check, the requirement included; empty: the code is valid
};

/// A program on disk; `info` and `fileSystem` are those of the file that was examined.
struct ProgramFile {
    std::string path;
    struct stat info{};
    MountedFileSystem fileSystem;
};

/// Returns success, or the status and the conditions that decided against the code.
[[nodiscard]] Error checkRequirement(const Requirement& requirement, const CodeFacts& facts);

/// The index of the first of some requirements that the code satisfies; else of the one that it
/// lacks the fewest conditions of.
[[nodiscard]] std::size_t nearestRequirement(std::span<const Requirement> requirements,
                                             const CodeFacts& facts);

/// The text "STATUS (MEANING): REASON" for an error of the code-signing services.
[[nodiscard]] std::string explainCodeSigningError(const Error& error);

/// The code directory hash in hexadecimal.
[[nodiscard]] std::string cdhashText(const CodeFacts& facts);

/// A program on disk: its signature, which flags that asks for, and how it is installed.
[[nodiscard]] CodeReport reportProgram(const ProgramFile& file, const StaticCode& code,
                                       const Requirement& requirement,
                                       const CodeSigningConfiguration& configuration);

/// A running program: its signature, and each flag with what set or withheld it.
[[nodiscard]] CodeReport reportGuest(const GuestCode& code, const Requirement& requirement,
                                     const CodeSigningConfiguration& configuration);

} // namespace qv
