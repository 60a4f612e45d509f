// An application that its session's bus starts: owns the name that it is given and, when it is
// activated, writes its own user into a file and ends.

#include <systemd/sd-bus.h>

#include <cstdio>
#include <unistd.h>

namespace {

int activate(sd_bus_message* message, void* file, sd_bus_error* /*error*/) {
    std::FILE* out = std::fopen(static_cast<const char*>(file), "w");
    std::fprintf(out, "activated %s as %d\n", sd_bus_message_get_path(message), int(::geteuid()));
    std::fclose(out);
    const int sent = ::sd_bus_reply_method_return(message, "");
    ::sd_bus_flush(::sd_bus_message_get_bus(message));
    ::sd_event_exit(::sd_bus_get_event(::sd_bus_message_get_bus(message)), 0);
    return sent;
}

constexpr sd_bus_vtable kApplication[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Activate", "a{sv}", "", activate, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace

int main(int /*count*/, char** words) { // the name, the object, the file
    sd_bus* bus = nullptr;
    sd_event* event = nullptr;
    const bool ready =
        ::sd_event_default(&event) >= 0 && ::sd_bus_open_user(&bus) >= 0 &&
        ::sd_bus_add_object_vtable(bus, nullptr, words[2], "org.freedesktop.Application",
                                   kApplication, words[3]) >= 0 &&
        ::sd_bus_request_name(bus, words[1], 0) >= 0 && ::sd_bus_attach_event(bus, event, 0) >= 0;
    return ready ? ::sd_event_loop(event) : 1;
}
