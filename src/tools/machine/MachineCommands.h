#pragma once

#include "tools/terminal/Result.h"

#include <optional>
#include <string>
#include <vector>

namespace qv::tools {

struct PreferencesOptions {
    std::string domain;
    std::optional<std::string> key;
    std::string user;         ///< a name or "any"; empty: the current one
    std::string host = "any"; ///< "any", "current" or a name
    bool json = false;
};
Result readPreferences(const PreferencesOptions& options);

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

} // namespace qv::tools
