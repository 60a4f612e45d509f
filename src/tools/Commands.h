#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qv::tools {

/// What `qvcatalog` answers to its caller. Codes 0 to 3 mean the same for every command.
enum class ExitStatus : std::uint8_t {
    success = 0,
    failed = 1,  ///< the script failed, the signature is not good, the text does not compile
    usage = 2,   ///< wrong arguments, or a file that cannot be read
    refused = 3, ///< the service refuses this client or cannot be reached
};

struct RunOptions {
    std::string file; ///< "-" for standard input
    std::string socketPath;
    bool json = false;
};
ExitStatus run(const RunOptions& options);

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
};
ExitStatus sign(const SignOptions& options);

struct InstallClientOptions {
    std::string file;
    std::string destination; ///< empty: `file` is replaced
    bool json = false;
};
ExitStatus installClient(const InstallClientOptions& options);

struct VerifyOptions {
    std::string file;
    std::optional<int> pid;
    std::string requirement; ///< empty: the one that the service demands
    bool explain = false;
    bool json = false;
};
ExitStatus verify(const VerifyOptions& options);

struct ClientsOptions {
    std::vector<std::string> folders; ///< to look for installed clients in; empty: the usual ones
    bool json = false;
};
/// `failed` where the anchors or the allowed clients are at fault.
ExitStatus clients(const ClientsOptions& options);

struct PlistOptions {
    std::string file;
    std::string to; ///< xml, binary or json; empty: only validate
    std::string output;
    bool archive = false;
};
ExitStatus plist(const PlistOptions& options);

struct PreferencesOptions {
    std::string domain;
    std::optional<std::string> key;
    std::string user;         ///< a name or "any"; empty: the current one
    std::string host = "any"; ///< "any", "current" or a name
    bool json = false;
};
/// `failed` where there is no such value, `usage` where it cannot be read.
ExitStatus readPreferences(const PreferencesOptions& options);

struct RequirementOptions {
    std::string text;
    bool json = false;
};
ExitStatus requirement(const RequirementOptions& options);

struct RuleOptions {
    std::string rule;                  ///< "-" for standard input; empty when `value` is given
    std::string value;                 ///< a single call or key path
    std::vector<std::string> settings; ///< NAME=VALUE
    bool explain = false;
    bool json = false;
};
/// `failed` for a rule that does not hold, `usage` for one that cannot be evaluated.
ExitStatus rule(const RuleOptions& options);

struct ApplicationOptions {
    std::string identifier; ///< empty when `name` is given
    std::string name;
    std::string user; ///< look as the service does for this user; empty: as the caller
    bool json = false;
};
/// Prints where an application is; `failed` when there is none.
ExitStatus application(const ApplicationOptions& options);

struct VersionOptions {
    std::string version;
    std::string other;
};
/// Prints -1, 0 or 1: the first version is the older one, the same, the newer one.
ExitStatus version(const VersionOptions& options);

// The programs that were granted trust; `usage` where that cannot be found out.

struct TrustListOptions {
    bool json = false;
};
ExitStatus trustList(const TrustListOptions& options);

struct TrustCheckOptions {
    std::string path;
    std::optional<int> pid;
};
/// `failed`: not trusted.
ExitStatus trustCheck(const TrustCheckOptions& options);

struct TrustRevokeOptions {
    std::string path;
};
ExitStatus trustRevoke(const TrustRevokeOptions& options);

} // namespace qv::tools
