#pragma once

#include "platform/foundation/values/Error.h"

#include <string>
#include <vector>

namespace qv {

/// The way to start an application.
struct ApplicationStart {
    std::string path;                 ///< of the application, for reports
    std::string identifier;           ///< a word for its unit's name
    std::vector<std::string> command; ///< an absolute path first; empty when there is only the bus
    std::string workingFolder;        ///< empty: the user's home
    std::string busName;              ///< of an application that its session's bus starts, or empty
};

} // namespace qv
