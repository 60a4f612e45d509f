#include "tools/machine/Machine.h"

#include "platform/foundation/os/CopiedPath.h"
#include "platform/preferences/PreferenceFiles.h"
#include "platform/workspace/applications/ApplicationIndex.h"
#include "platform/workspace/launch/CopiedWorkspace.h"

#include <fmt/core.h>

#include <filesystem>
#include <system_error>

namespace qv::tools {

namespace fs = std::filesystem;

tl::expected<std::unique_ptr<Machine>, Failure> Machine::below(const std::string& root) {
    std::unique_ptr<Machine> machine(new Machine);
    if (root.empty()) {
        machine->services_ = RuleServices::ofThisProcess();
        return machine;
    }
    std::error_code fault;
    const std::string folder = fs::canonical(root, fault);
    if (fault || !fs::is_directory(folder, fault)) {
        return failure(ExitStatus::usage,
                       fmt::format("{}: {}", root, fault ? fault.message() : "is not a folder"));
    }
    if (!fs::equivalent(root, folder, fault)) {
        return failure(ExitStatus::usage,
                       fmt::format("{}: is in another mount namespace; copy its files", root));
    }
    const std::string prefix = folder == "/" ? "" : folder;
    const auto place = [&](const std::string& path) {
        constexpr const char* kNoFolder = "/dev/null"; // nor is there anything below it
        return copiedPath(prefix, prefix + path).value_or(kNoFolder);
    };
    machine->devices_.emplace(DevicePlaces{.sysfs = place("/sys"),
                                           .udevData = place("/run/udev/data"),
                                           .machineID = place("/etc/machine-id")});
    auto services = std::make_shared<RuleServices>();
    services->root = prefix;
    machine->copy_ = std::make_shared<CopiedWorkspace>(prefix);
    services->workspace = [copy = machine->copy_]() -> auto& { return *copy; };
    PreferenceEnvironment environment;
    environment.anyUserFolder = place(environment.anyUserFolder);
    environment.heedsConfigHome = false; // it is a folder of this machine
    environment.userNumbered = [](uid_t /*user*/) { return std::nullopt; };
    services->preferences = [files = std::make_shared<PreferenceFiles>(environment)]() -> auto& {
        return *files;
    };
    machine->services_ = std::move(services);
    return machine;
}

std::vector<InstalledApplication> Machine::applications() const {
    return copy_ != nullptr ? copy_->applications()
                            : ApplicationIndex(ownApplicationFolders()).applications();
}

} // namespace qv::tools
