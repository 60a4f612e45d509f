#pragma once

#include <string_view>
#include <sys/types.h>

/// The builder's choices, which cmake/QvOptions.cmake explains. One source holds them all, so
/// builds that differ in nothing else share the objects of every other source.
namespace qv::configuration {

extern const std::string_view kVersion; ///< of the project, "1.0.3"

/// A developer's build takes debuggable programs, and every user who can write to its build folder
/// is its authority; so it serves at sockets below that folder only.
extern const bool kIsDevelopment;
extern const std::string_view kDevelopmentFolder; ///< empty in all other builds
/// The text "This is a developer's build", empty in all others: the installation looks for this
/// text in the service before it installs it.
extern const std::string_view kDevelopmentNotice;

extern const std::string_view kAnchorsFolder;
extern const uid_t kAnchorOwner; ///< of the anchors and of the allowed clients
extern const std::string_view kClientsFolder;
extern const std::string_view kClientGroup;       ///< name or number
extern const std::string_view kAuthorizedClients; ///< a code requirement, or "never"
extern const std::string_view kSocketPath;
extern const std::string_view kResourceFolder;
extern const std::string_view kStateFolder;

// The socket that records go to; a developer's build leaves the machine's alone.
extern const std::string_view kJournalSocket;
extern const std::string_view kSyslogSocket;

// The programs that open archives and disk images, absolute paths, and where images are mounted.
extern const std::string_view kArchiveTool;
extern const std::string_view kDiskImageTool;
/// The copy of this command that `qvcatalog setup` makes, for root alone; not in a developer's
/// build.
extern const std::string_view kRootCommand;
extern const std::string_view kVolumesFolder;
extern const std::string_view kImagesFolder; ///< root's records of what is attached
extern const std::string_view kSevenZip;     ///< the program 7zz, below /usr

} // namespace qv::configuration
