#include "platform/applescript/world/applications/BusCalls.h"

#include "platform/workspace/applications/Patience.h"
#include "platform/workspace/launch/Bus.h"
#include "platform/workspace/launch/BusActivation.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <functional>

namespace qv::applescript::world {

namespace {

struct BusCall {
    std::string destination;
    std::string path;
    const char* interface;
    const char* member;
    bool startsService;
    std::function<int(sd_bus_message*)> append; ///< below 0: a negative errno
};

int appendTexts(sd_bus_message* message, const std::vector<std::string>& texts) {
    int status = ::sd_bus_message_open_container(message, 'a', "s");
    for (const std::string& each : texts) {
        status = status < 0 ? status : ::sd_bus_message_append(message, "s", each.c_str());
    }
    return status < 0 ? status : ::sd_bus_message_close_container(message);
}

int callOn(const std::string& address, const BusCall& call, std::chrono::microseconds patience) {
    const auto bus = connectToBus(address, BusPeer::broker, patience);
    if (!bus) {
        return bus.error();
    }
    sd_bus_message* made = nullptr;
    int status = ::sd_bus_message_new_method_call(bus->get(), &made, call.destination.c_str(),
                                                  call.path.c_str(), call.interface, call.member);
    const BusMessage message(made);
    if (status >= 0) {
        status = ::sd_bus_message_set_auto_start(made, call.startsService ? 1 : 0);
    }
    if (status >= 0) {
        status = call.append(made);
    }
    BusError error;
    return status < 0 ? status : ::sd_bus_call(bus->get(), made, 0, error.get(), nullptr);
}

bool callAsUser(WorldContext& context, const BusCall& call,
                std::chrono::milliseconds patience = LaunchPatience{}.bus) {
    const LaunchSession* const session = context.session();
    if (session == nullptr || session->busAddress.empty()) {
        return false;
    }
    const auto time = context.processes->patienceWith(session->user.user, patience);
    return context
        .performAs(
            session->user,
            [&] {
                const int status = callOn(session->busAddress, call, time);
                return resultOf(status < 0 ? Error::posix(-status) : Error());
            },
            time)
        .has_value();
}

constexpr const char* kApplicationInterface = "org.freedesktop.Application";

} // namespace

bool activateAction(WorldContext& context, const std::string& busName, const std::string& action,
                    std::chrono::milliseconds patience) {
    return ::sd_bus_service_name_is_valid(busName.c_str()) > 0 &&
           callAsUser(context,
                      {.destination = busName,
                       .path = objectPathOf(busName),
                       .interface = kApplicationInterface,
                       .member = "ActivateAction",
                       .startsService = false,
                       .append =
                           [&](sd_bus_message* message) {
                               return ::sd_bus_message_append(message, "sava{sv}", action.c_str(),
                                                              0, 0);
                           }},
                      patience);
}

bool openWithApplication(WorldContext& context, const std::string& busName,
                         const std::vector<std::string>& urls) {
    return callAsUser(context, {.destination = busName,
                                .path = objectPathOf(busName),
                                .interface = kApplicationInterface,
                                .member = "Open",
                                .startsService = true,
                                .append = [&](sd_bus_message* message) {
                                    const int status = appendTexts(message, urls);
                                    return status < 0
                                               ? status
                                               : ::sd_bus_message_append(message, "a{sv}", 0);
                                }});
}

bool showNotification(WorldContext& context, const std::string& title, const std::string& body) {
    constexpr int kServersChoice = -1;
    return callAsUser(context, {.destination = "org.freedesktop.Notifications",
                                .path = "/org/freedesktop/Notifications",
                                .interface = "org.freedesktop.Notifications",
                                .member = "Notify",
                                .startsService = true,
                                .append = [&](sd_bus_message* message) {
                                    return ::sd_bus_message_append(message, "susssasa{sv}i", "", 0U,
                                                                   "", title.c_str(), body.c_str(),
                                                                   0, 0, kServersChoice);
                                }});
}

bool showInFileManager(WorldContext& context, const std::vector<std::string>& urls) {
    return callAsUser(context, {.destination = "org.freedesktop.FileManager1",
                                .path = "/org/freedesktop/FileManager1",
                                .interface = "org.freedesktop.FileManager1",
                                .member = "ShowItems",
                                .startsService = true,
                                .append = [&](sd_bus_message* message) {
                                    const int status = appendTexts(message, urls);
                                    return status < 0 ? status
                                                      : ::sd_bus_message_append(message, "s", "");
                                }});
}

} // namespace qv::applescript::world
