#include "codesign/ClientVerification.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/configuration/ProgramVersion.h"
#include "platform/foundation/files/item/SocketPlace.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/process/state/ProcessState.h"
#include "platform/foundation/process/task/OutputRelay.h"
#include "platform/system/MainBundle.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/MainQueue.h"
#include "service/HelperService.h"

#include <fmt/core.h>

#include <chrono>
#include <cstdlib>
#include <sys/types.h>

namespace {

constexpr const char* kServiceName = "com.larkwen.qvcatalog.helper";

// The examiner listens beside the service, and only the service's manager puts sockets there.
std::string examinerPath(std::string servicePath) {
    constexpr std::string_view kOwn = "helper.sock";
    return servicePath.ends_with(kOwn)
               ? servicePath.replace(servicePath.size() - kOwn.size(), kOwn.size(), "examiner.sock")
               : std::string();
}

// At a socket of the machine such a service would give root to everyone: it takes debuggable
// programs, and every user who can write to its build folder is its authority.
bool mayServe(const std::string& path) {
    const std::string_view folder = qv::configuration::kDevelopmentFolder;
    if (folder.empty() || qv::isSocketBelow(path, std::string(folder))) {
        return true;
    }
    qv::log::write(qv::log::Priority::error,
                   fmt::format("{}, and its socket {} does not stand in its build folder {}",
                               qv::configuration::kDevelopmentNotice, qv::log::foreign(path),
                               folder));
    return false;
}

int failToListen() {
    qv::log::write(qv::log::Priority::error,
                   "QVCatalogHelperXPC failed to create XPC mach service");
    return EXIT_FAILURE;
}

} // namespace

// The program uses no environment and no configuration: everything comes from the client's script.
int main(int count, char** arguments) {
    if (qv::configuration::toldVersion("QVCatalogHelperXPC", count, arguments)) {
        return EXIT_SUCCESS;
    }
    qv::sanitizeProcess();
    qv::log::open("QVCatalogHelperXPC", qv::log::Destination::systemLog);
    qv::log::write(qv::log::Priority::notice, "QVCatalogHelperXPC launched");
    const auto relay = qv::OutputRelay::start();
    if (!relay) {
        qv::log::write(qv::log::Priority::error,
                       "a reader of the output that stops will stop tools: " +
                           relay.error().localizedDescription());
    }
    auto queue = qv::xpc::MainQueue::create();
    if (!queue) {
        return failToListen();
    }
    auto listener = qv::xpc::Listener::createMachService(kServiceName, **queue);
    if (!listener) {
        qv::log::write(qv::log::Priority::error, listener.error().localizedDescription());
        return failToListen();
    }
    if (!mayServe((*listener)->path())) {
        return failToListen();
    }
    qv::ClientVerification verification;
    for (const std::string& warning : verification.warnings()) {
        qv::log::write(qv::log::Priority::notice, warning);
    }
    qv::HelperService service(
        **queue, verification, qv::MainBundle::infoDictionary(), examinerPath((*listener)->path()),
        [&](uid_t user, std::chrono::nanoseconds cost) { (*listener)->charge(user, cost); });
    (*listener)->setEventHandler([&](const std::shared_ptr<qv::xpc::Connection>& connection) {
        service.handleConnection(connection);
    });
    (*listener)->resume();
    return (*queue)->run();
}
