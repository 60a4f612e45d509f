#pragma once

#include "platform/foundation/values/Error.h"
#include "platform/foundation/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace qv {

// Designations that stand where the name of an application, a user or a host could.
namespace preferences {
inline constexpr std::string_view kAnyApplication = "kCFPreferencesAnyApplication";
inline constexpr std::string_view kCurrentApplication = "kCFPreferencesCurrentApplication";
inline constexpr std::string_view kAnyUser = "kCFPreferencesAnyUser";
inline constexpr std::string_view kCurrentUser = "kCFPreferencesCurrentUser"; ///< the effective one
inline constexpr std::string_view kAnyHost = "kCFPreferencesAnyHost";
inline constexpr std::string_view kCurrentHost = "kCFPreferencesCurrentHost";
} // namespace preferences

/// The owner of values: one application for one user on one host. Each is a designation or a name;
/// a domain that lacks one does not exist.
struct PreferencesDomain {
    std::optional<std::string> applicationID;
    std::optional<std::string> userName;
    std::optional<std::string> hostName;

    friend bool operator==(const PreferencesDomain&, const PreferencesDomain&) = default;
};

/// Values that applications keep under keys. One thread at a time.
class PreferencesService {
public:
    PreferencesService() = default;
    PreferencesService(const PreferencesService&) = delete;
    PreferencesService& operator=(const PreferencesService&) = delete;
    PreferencesService(PreferencesService&&) = delete;
    PreferencesService& operator=(PreferencesService&&) = delete;
    virtual ~PreferencesService() = default;

    /// Notes a value, or that the key shall go away. It counts once the domain is synchronized.
    virtual void setValue(const std::optional<std::string>& key, const std::optional<Value>& value,
                          const PreferencesDomain& domain) = 0;
    /// Stores what was noted for the domain, all or nothing, and forgets it. The error, of
    /// NSPOSIXErrorDomain with a description that names the file and the cause, is for logs.
    virtual Error synchronize(const PreferencesDomain& domain) = 0;

    /// The stored value under a key of one domain; none when there is none or it cannot be read.
    virtual std::optional<Value> copyValue(std::string_view key,
                                           const PreferencesDomain& domain) = 0;
    /// The value that an application sees: the first that there is of the current user's (on this
    /// host, then on any), the current user's for any application, and then the same of any user.
    virtual std::optional<Value> copyAppValue(std::string_view key,
                                              const std::string& applicationID) = 0;
};

} // namespace qv
