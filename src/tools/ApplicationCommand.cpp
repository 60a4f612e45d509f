#include "platform/foundation/files/FileErrors.h"
#include "platform/foundation/process/UserRecord.h"
#include "platform/workspace/applications/ApplicationIndex.h"
#include "tools/Commands.h"
#include "tools/Json.h"
#include "tools/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

ExitStatus application(const ApplicationOptions& options) {
    if (options.identifier.empty() == options.name.empty()) {
        complain("application: give an IDENTIFIER or a name with --name");
        return ExitStatus::usage;
    }
    std::vector<ApplicationFolders> folders;
    if (options.user.empty()) {
        folders = ownApplicationFolders();
    } else if (const std::optional<UserRecord> user = userRecord(options.user)) {
        folders = applicationFoldersFor(*user);
    } else {
        complain(fmt::format("there is no user \"{}\"", options.user));
        return ExitStatus::usage;
    }
    ApplicationIndex index(folders);
    const std::optional<std::string> path = options.name.empty()
                                                ? index.pathForIdentifier(options.identifier)
                                                : index.pathForName(options.name);
    const Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(jsonText(
            path ? Value::dictionary({{"found", Value::boolean(true)}, {"path", pathText(*path)}})
                 : Value::dictionary({{"found", Value::boolean(false)}})));
    } else if (path) {
        out.line(out.styled(*path, Terminal::Style::plain));
    } else {
        complain(options.name.empty()
                     ? fmt::format("no application has the identifier \"{}\"", options.identifier)
                     : fmt::format("no application has the name \"{}\"", options.name));
    }
    return path ? ExitStatus::success : ExitStatus::failed;
}

} // namespace qv::tools
