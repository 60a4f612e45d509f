#include "platform/applescript/world/SystemFacts.h"

#include "platform/applescript/values/Terms.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/FileAnswers.h"
#include "platform/foundation/os/RegularFile.h"

#include <arpa/inet.h>
#include <array>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

std::string systemVersion() {
    constexpr std::size_t kLongest = std::size_t{64} << 10U;
    for (const char* const path : {"/etc/os-release", "/usr/lib/os-release"}) {
        const Descriptor file = openRegularFile(std::string(path));
        const auto text = file ? contentOfRegularFile(file.get(), kLongest) : std::nullopt;
        for (const auto& [key, value] : assignmentsIn(text.value_or(""))) {
            if (key == "VERSION_ID") {
                return validText(value);
            }
        }
    }
    return {};
}

struct AddressesReleaser {
    void operator()(ifaddrs* list) const noexcept { ::freeifaddrs(list); }
};

// The first that is not this machine talking to itself.
std::string firstAddress() {
    ifaddrs* made = nullptr;
    if (::getifaddrs(&made) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, AddressesReleaser> list(made);
    for (const ifaddrs* each = list.get(); each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET ||
            (each->ifa_flags & IFF_LOOPBACK) != 0) {
            continue;
        }
        std::array<char, INET_ADDRSTRLEN> text{};
        const auto* const address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr);
        ::inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size());
        return text.data();
    }
    return {};
}

std::int64_t physicalMegabytes() {
    constexpr std::int64_t kMegabyte = std::int64_t{1} << 20U;
    return ::sysconf(_SC_PHYS_PAGES) / (kMegabyte / ::sysconf(_SC_PAGESIZE));
}

} // namespace

ScriptValue systemInformation(WorldContext& context) {
    utsname machine{};
    ::uname(&machine);
    const std::string node = validText(static_cast<const char*>(machine.nodename));
    const UserRecord& user = context.user();
    const auto text = [](Term term, std::string value) {
        return std::pair(std::string(wordsOf(term)), ScriptValue::text(std::move(value)));
    };
    return ScriptValue::record({
        text(Term::systemVersion, systemVersion()),
        text(Term::shortUserName, user.name),
        text(Term::longUserName, user.name),
        {std::string(wordsOf(Term::userID)), numberValue(user.user)},
        {std::string(wordsOf(Term::homeDirectory)),
         ScriptValue::file(joined(user.home, ""), Term::alias)},
        text(Term::bootVolume, std::string(kStartupDisk)),
        text(Term::computerName, node),
        text(Term::hostName, node),
        text(Term::ipv4Address, firstAddress()),
        text(Term::cpuType, validText(static_cast<const char*>(machine.machine))),
        {std::string(wordsOf(Term::physicalMemory)), numberValue(physicalMegabytes())},
    });
}

} // namespace qv::applescript::world
