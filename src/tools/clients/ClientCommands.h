#pragma once

#include "tools/terminal/Result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qv::tools {

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
/// Returns `failed` where the anchors or the allowed clients are at fault.
Result clients(const ClientsOptions& options);

struct RequirementOptions {
    std::string text;
    bool json = false;
};
Result requirement(const RequirementOptions& options);

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

} // namespace qv::tools
