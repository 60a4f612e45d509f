#pragma once

#include <tl/expected.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qv {

// Readers of the kernel's process files (proc(5)), as pure functions over their text. The process
// that a text is about is hostile and chooses parts of it: its name, the paths of what it maps, the
// names of its mount points. A text that does not read from its first to its last byte is refused;
// the error names the file, the line and the cause in words.

/// One executable range of a process's address space. Two equal ranges mean that nothing moved.
struct ExecutableMapping {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    bool writable = false;
    bool shared = false;
    std::uint64_t offset = 0;
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint64_t inode = 0;
    std::string name; ///< as shown; for messages only where `inode` is not 0
    friend bool operator==(const ExecutableMapping&, const ExecutableMapping&) = default;
};

/// The executable ranges out of `maps`.
[[nodiscard]] tl::expected<std::vector<ExecutableMapping>, std::string>
parseExecutableMappings(std::string_view maps);

struct ProcessStatus {
    pid_t tracer = 0;   ///< 0: none
    uid_t realUser = 0; ///< the user who wrote the environment
    uid_t effectiveUser = 0;
    gid_t effectiveGroup = 0;
    gid_t savedGroup = 0;       ///< as the execution of the program left it, unless changed since
    std::optional<int> seccomp; ///< mode; none: the kernel does not tell
};

/// Reads the fields out of `status`. A field that comes twice is refused, so that no process name
/// can add one.
[[nodiscard]] tl::expected<ProcessStatus, std::string> parseProcessStatus(std::string_view status);

/// The process of a pidfd, -1 once it has ended, out of `fdinfo/N`.
[[nodiscard]] tl::expected<pid_t, std::string> parsePidfdInfo(std::string_view fdinfo);

/// The time when a process was started, in clock ticks since the machine's start, out of `stat`.
[[nodiscard]] tl::expected<std::uint64_t, std::string> parseStartTime(std::string_view stat);

struct MountedFileSystem {
    std::string type;             ///< empty: not known
    bool ignoresSetGroup = false; ///< mounted nosuid: no execution there changes user or group
    friend bool operator==(const MountedFileSystem&, const MountedFileSystem&) = default;
};

/// A line of `mountinfo`, as parts of the text: blanks in names are octal escapes.
struct Mount {
    std::string_view point;
    std::string_view options;
    std::string_view type;
    std::string_view fileSystemOptions;
};

/// The line of a mount; none when it is not listed there.
[[nodiscard]] tl::expected<std::optional<Mount>, std::string> findMount(std::string_view mountinfo,
                                                                        std::uint64_t mount);
/// Whether a list with commas between them holds an option.
[[nodiscard]] bool hasOption(std::string_view options, std::string_view wanted);

/// The file system of a mount, from `mountinfo`; none when it is not listed there.
[[nodiscard]] tl::expected<std::optional<MountedFileSystem>, std::string>
fileSystemOfMount(std::string_view mountinfo, std::uint64_t mount);

} // namespace qv
