#include "platform/foundation/files/item/FileErrors.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/workspace/applications/ApplicationIndex.h"
#include "tools/machine/MachineCommands.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

Result application(const ApplicationOptions& options) {
    if (options.identifier.empty() == options.name.empty()) {
        return failure(ExitStatus::usage, "application: give an IDENTIFIER or a name with --name");
    }
    std::vector<ApplicationFolders> folders;
    if (options.user.empty()) {
        folders = ownApplicationFolders();
    } else if (const std::optional<UserRecord> user = userRecord(options.user)) {
        folders = applicationFoldersFor(*user);
    } else {
        return failure(ExitStatus::usage, fmt::format("there is no user \"{}\"", options.user));
    }
    ApplicationIndex index(folders);
    const std::optional<std::string> path = options.name.empty()
                                                ? index.pathForIdentifier(options.identifier)
                                                : index.pathForName(options.name);
    if (!path) {
        return failure(
            ExitStatus::failed,
            options.name.empty()
                ? fmt::format("no application has the identifier \"{}\"", options.identifier)
                : fmt::format("no application has the name \"{}\"", options.name));
    }
    Terminal& out = Terminal::standardOutput();
    out.line(options.json ? jsonText(Value::dictionary({{"path", pathText(*path)}}))
                          : out.styled(*path, Terminal::Style::plain));
    return ExitStatus::success;
}

} // namespace qv::tools
