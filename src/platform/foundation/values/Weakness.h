#pragma once

#include <cstdint>

#ifdef QV_WEAKENED
#include <array>
#include <cstdlib>
#include <string_view>
#endif

namespace qv {

/// A check that one build, made for tests only, can be told to leave out: what shows that an attack
/// is real, and that this check is what stops it. In every other build nothing of it is compiled.
enum class Weakness : std::uint8_t {
    peerProcess,      ///< the peer is the process that connected, not its number's next holder
    peerAlive,        ///< the peer still lives when its message is looked at
    sender,           ///< a message is written by the peer's process
    nonce,            ///< a request was written after the greeting
    image,            ///< the program in memory is still the accepted one
    executable,       ///< and so is its file
    passedRights,     ///< the kernel is told to let no descriptors through
    controlData,      ///< a message with control data is refused
    nonBlocking,      ///< nobody is waited for
    usersConnections, ///< the connections of one user are limited
    usersStrangers,   ///< so is the time spent on those that are turned away
    userNamespace,    ///< a peer lives in the service's user namespace
    fileSystem,       ///< programs stand on local file systems
    linkCount,        ///< a program's file has not been deleted
    launchMark,       ///< a client was started by the rules for privileged programs
    mappings,         ///< root alone can change the code that a client executes
    dumpable,         ///< a client's own user cannot look into it
    tracer,           ///< nobody traces a client
    seccompFilter,    ///< nobody filters the system calls of a client
    codeFlags,        ///< a client has the status flags that it must have
    codeRequirement,  ///< a client's signature satisfies the requirement
};

#ifdef QV_WEAKENED
/// In the order of Weakness.
inline constexpr std::array<std::string_view, 21> kWeaknessNames = {
    "peerProcess",    "peerAlive",     "sender",      "nonce",         "image",
    "executable",     "passedRights",  "controlData", "nonBlocking",   "usersConnections",
    "usersStrangers", "userNamespace", "fileSystem",  "linkCount",     "launchMark",
    "mappings",       "dumpable",      "tracer",      "seccompFilter", "codeFlags",
    "codeRequirement"};
static_assert(kWeaknessNames.back() ==
              kWeaknessNames.at(static_cast<std::size_t>(Weakness::codeRequirement)));

/// QV_WEAKNESS of the environment: names with a comma behind each.
[[nodiscard]] inline bool isWeakened(Weakness weakness) noexcept {
    static const char* const kList =
        std::getenv("QV_WEAKNESS"); // NOLINT(concurrency-mt-unsafe): nobody sets any
    for (std::string_view rest = kList == nullptr ? "" : kList; !rest.empty();) {
        const std::size_t end = rest.find(',');
        if (rest.substr(0, end) == kWeaknessNames.at(static_cast<std::size_t>(weakness))) {
            return true;
        }
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return false;
}
#else
[[nodiscard]] constexpr bool isWeakened(Weakness /*weakness*/) noexcept { return false; }
#endif

} // namespace qv
