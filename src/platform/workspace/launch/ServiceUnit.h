#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace qv {

/// A service that a service manager (systemd) is to start, and to forget when it has ended.
struct ServiceUnit {
    std::string name;        ///< "NAME.service", that of no other unit
    std::string description; ///< one line
    std::string slice;       ///< empty: the manager's choice
    std::string user;        ///< empty: the manager's own
    std::string workingFolder;
    std::vector<std::string> environment; ///< NAME=VALUE, on top of the manager's
    std::vector<std::string> command;     ///< an absolute path first; taken literally
};

/// Has the manager behind a private socket start a unit, and waits until its program has been
/// executed. Returns an empty text, or the fault. The caller is a user whom that manager obeys.
[[nodiscard]] std::string startUnit(const std::string& socketPath, const ServiceUnit& unit,
                                    std::chrono::steady_clock::time_point deadline);

} // namespace qv
